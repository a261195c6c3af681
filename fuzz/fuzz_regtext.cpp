// Fuzzes the text form of registry value data: the first byte picks a type, the rest is
// the text (UTF-8). Whatever parses is shown again and parsed a second time; for the types
// whose text form is exact, both parses must give the same bytes.
#include <vardo/regfile.h>

#include <cstdint>
#include <cstring>
#include <vector>

using namespace Vardo400;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const uint32_t types[] = {RegTypeNone, RegTypeString, RegTypeExpandString, RegTypeBinary,
                              RegTypeDword, RegTypeMultiString, RegTypeQword, 21};
    uint32_t type = types[data[0] % (sizeof types / sizeof types[0])];
    std::vector<unsigned char> utf8(data + 1, data + size);
    utf8.push_back(0);
    SWCharString text;
    if (size > 1 && !text.fromUTF8(utf8.data()))
        return 0;
    SSimpleBuffer first;
    if (!SRegText::ParseData(type, text, first)) {
        if (!first.isEmpty())
            __builtin_trap();
        return 0;
    }
    SWCharString shown = SRegText::FormatData(type, first.data(), static_cast<uint32_t>(first.size()));
    // Show any bytes at all, whatever the type.
    SRegText::FormatData(type, utf8.data(), static_cast<uint32_t>(utf8.size()));
    SSimpleBuffer second;
    bool again = SRegText::ParseData(type, shown, second);
    // Strings, numbers and hex bytes come back exactly (a REG_SZ only up to its first NUL,
    // which text from UTF-8 cannot hold; REG_MULTI_SZ stops at its first empty string).
    if (type != RegTypeMultiString && (!again || !(first == second)))
        __builtin_trap();
    return 0;
}
