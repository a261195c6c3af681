// Fuzzes ConfigFileReader's parser against a small independent model of the format.
//
// Input: plain bytes are the file's text, each byte one UTF-16 unit; a first byte 0xFF
// makes the rest UTF-16LE units. Checked: no crash or out-of-bounds access; section
// names in file order, keys of every section and every value as the model has them
// (bodies cut at "\n[", a line without "=" ends a section, the duplicate-key rule, the
// last same-named section deciding).
#include "fuzz_check.h"
#include "vardo/configfilereader.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

using namespace Vardo400;

namespace {

typedef std::u16string U;

struct Section {
    U name;
    std::map<U, U> values;
};

U trim(const U& s)
{
    size_t b = 0, e = s.size();
    while (b < e && is_space(s[b]))
        ++b;
    while (e > b && is_space(s[e - 1]))
        --e;
    return s.substr(b, e - b);
}

std::map<U, U> parseBody(const U& body)
{
    std::map<U, U> values;
    size_t pos = 0;
    while (pos < body.size()) {
        size_t lf = body.find(u'\n', pos);
        if (lf == U::npos)
            lf = body.size();
        U line = trim(body.substr(pos, lf - pos));
        pos = lf + 1;
        if (line.empty())
            continue;
        size_t eq = line.find(u'=');
        if (eq == U::npos)
            break;
        U key = line.substr(0, eq);
        if (values.count(key))
            continue;
        values[trim(key)] = trim(line.substr(eq + 1));
    }
    return values;
}

std::vector<Section> parseModel(const U& text)
{
    std::vector<Section> sections;
    size_t open = text.find(u'[');
    while (open != U::npos) {
        size_t close = text.find(u']', open + 1);
        size_t nameEnd = close == U::npos ? text.size() : close;
        size_t bodyStart = close == U::npos ? text.size() : close + 1;
        size_t next = text.find(u"\n[", bodyStart);
        size_t bodyEnd = next == U::npos ? text.size() : next;
        Section s;
        s.name = trim(text.substr(open + 1, nameEnd - open - 1));
        s.values = parseBody(trim(text.substr(bodyStart, bodyEnd - bodyStart)));
        sections.push_back(s);
        open = next == U::npos ? U::npos : next + 1;
    }
    return sections;
}

SWCharString S(const U& u)
{
    return SWCharString(reinterpret_cast<const unsigned short*>(u.c_str()));
}

bool same(const SWCharString& a, const U& b)
{
    return a.getLength() == b.size() &&
           a.compareBinary(reinterpret_cast<const unsigned short*>(b.c_str())) == 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    U text;
    if (size > 0 && data[0] == 0xFF) {
        for (size_t i = 1; i + 1 < size; i += 2) {
            char16_t c = static_cast<char16_t>(data[i] | (data[i + 1] << 8));
            if (c == 0)
                break;
            text.push_back(c);
        }
    } else {
        for (size_t i = 0; i < size && data[i]; ++i)
            text.push_back(static_cast<char16_t>(data[i]));
    }

    ConfigFileReader reader;
    bool ok = reader.initializeFromText(S(text));
    FUZZ_CHECK(ok == !text.empty());
    if (!ok)
        return 0;

    std::vector<Section> model = parseModel(text);
    SIArray<SWCharString> names;
    FUZZ_CHECK(reader.getSections(names));
    FUZZ_CHECK(names.size() == model.size());
    for (size_t i = 0; i < model.size(); ++i)
        FUZZ_CHECK(same(names[i], model[i].name));

    const SWCharString none(SWCharString::Char(static_cast<unsigned short>(1)));
    for (size_t i = 0; i < model.size(); ++i) {
        // The last section of this name answers.
        const Section* last = &model[i];
        for (size_t j = i + 1; j < model.size(); ++j)
            if (model[j].name == model[i].name)
                last = &model[j];
        SIArray<SWCharString> keys;
        FUZZ_CHECK(reader.enumerateSection(S(model[i].name), keys));
        FUZZ_CHECK(keys.size() == last->values.size());
        size_t k = 0;
        for (const auto& kv : last->values) {
            FUZZ_CHECK(same(keys[k++], kv.first));
            FUZZ_CHECK(same(reader.getValue(S(model[i].name), S(kv.first), none), kv.second));
        }
        // A key of an earlier same-named section that the last one lacks gives the default.
        for (const auto& kv : model[i].values)
            if (!last->values.count(kv.first))
                FUZZ_CHECK(reader.getValue(S(model[i].name), S(kv.first), none) == none);
    }

    // Copies answer alike.
    ConfigFileReader copy(reader);
    SIArray<SWCharString> copyNames;
    FUZZ_CHECK(copy.getSections(copyNames));
    FUZZ_CHECK(copyNames.size() == names.size());
    return 0;
}
