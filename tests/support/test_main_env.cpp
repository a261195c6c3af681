// Common start-up for every test binary: tests see the "C" locale unless they set one.
#include <clocale>

namespace {
struct CLocale {
    CLocale() { std::setlocale(LC_ALL, "C"); }
} g_cLocale;
} // namespace
