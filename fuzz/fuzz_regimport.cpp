// Fuzzes the regedit-format reader: decoding by byte-order mark and parsing. Whatever
// parses is written back with the writer and parsed again; both readings must agree.
#include <vardo/regfile.h>

#include <cstdint>
#include <cstring>
#include <vector>

using namespace Vardo400;

namespace {

struct Entry {
    int kind;   // 0 key, 1 deleted key, 2 value, 3 deleted value
    SWCharString text;
    uint32_t type;
    std::vector<unsigned char> data;
    bool operator==(const Entry& o) const
    {
        return kind == o.kind && text.compareBinary(o.text.data()) == 0 &&
               text.getLength() == o.text.getLength() && type == o.type && data == o.data;
    }
};

struct Collector : SRegFileSink {
    std::vector<Entry> entries;
    bool onKey(const SWCharString& fullPath, bool bDelete) override
    {
        entries.push_back(Entry{bDelete ? 1 : 0, fullPath, 0, {}});
        return true;
    }
    bool onValue(const SWCharString& name, uint32_t type, const unsigned char* data, uint32_t size) override
    {
        entries.push_back(Entry{2, name, type, std::vector<unsigned char>(data, data + size)});
        return true;
    }
    bool onDeleteValue(const SWCharString& name) override
    {
        entries.push_back(Entry{3, name, 0, {}});
        return true;
    }
};

SWCharString ascii(const char* s)
{
    SWCharString r;
    r.concatFromAscii(s, static_cast<unsigned int>(std::strlen(s)));
    return r;
}

SWCharString quoted(const SWCharString& s)
{
    std::vector<unsigned short> u{'"'};
    for (const unsigned short* p = s.data(); *p; ++p) {
        if (*p == '\\' || *p == '"')
            u.push_back('\\');
        u.push_back(*p);
    }
    u.push_back('"');
    u.push_back(0);
    return SWCharString(u.data());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    SWCharString text;
    if (!SRegFile::Decode(data, size, text))
        return 0;
    Collector first;
    SWCharString error;
    if (!SRegFile::Parse(text, first, &error)) {
        if (error.isEmpty())
            __builtin_trap();
        return 0;
    }
    SWCharString written = ascii(SRegFile::Header) + ascii("\r\n");
    for (const Entry& e : first.entries) {
        if (e.kind <= 1) {
            written += SRegFile::FormatKey(e.text, e.kind == 1);
        } else if (e.kind == 2) {
            SWCharString line;
            if (!SRegFile::FormatValue(e.text, e.type, e.data.data(), static_cast<uint32_t>(e.data.size()), line))
                __builtin_trap();
            written += line;
        } else {
            written += (e.text.isEmpty() ? ascii("@") : quoted(e.text)) + ascii("=-\r\n");
        }
    }
    Collector second;
    if (!SRegFile::Parse(written, second, &error))
        __builtin_trap();
    if (!(first.entries == second.entries))
        __builtin_trap();
    return 0;
}
