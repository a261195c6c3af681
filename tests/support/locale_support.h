// Switching the C locale in tests, generating missing locales on the fly.
#ifndef VARDO_TEST_LOCALE_SUPPORT_H
#define VARDO_TEST_LOCALE_SUPPORT_H

namespace vardo_test {

// Sets LC_ALL to name for the lifetime of the object and restores "C" afterwards.
// Names of the form "ll_CC.CHARSET" that the machine lacks are generated with
// localedef into a private folder (LOCPATH). ok() is false when the locale cannot be
// had (for example under Wine); callers then GTEST_SKIP.
class ScopedLocale {
public:
    explicit ScopedLocale(const char* name);
    ~ScopedLocale();
    bool ok() const { return m_ok; }
private:
    bool m_ok;
};

} // namespace vardo_test

#endif
