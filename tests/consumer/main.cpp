#include <vardo/vardo.h>
#include <cstdio>

int main()
{
    Vardo400::SWCharString s((const unsigned short*)u"consumer");
    s += (const unsigned short*)u" ok";
    std::printf("%u\n", s.getLength());
    return s.getLength() == 11 ? 0 : 1;
}
