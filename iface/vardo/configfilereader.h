// ConfigFileReader: settings from a small sectioned text file, read once.
//
// Format. A section starts with "[name]"; its body runs to the next line that begins
// with "[" (a bracket elsewhere in a line starts nothing). Text before the first "["
// is ignored. A body is a sequence of "key = value" lines: key and value are trimmed of
// white space, the value is everything after the first "=", blank lines are skipped.
// There is no comment syntax: the first non-blank line without "=" ends the section's
// settings and the rest of that section is ignored. Names and keys are compared exactly
// (case-sensitive). A key written twice keeps its first value when the first was written
// without blanks around the key, else takes the later one. Several sections may share a
// name; the last of them answers getValue.
//
// Errors: nothing throws except std::bad_alloc. A file that cannot be opened or read is
// traced (strace.h) and initialize returns false.
// Thread-safety: read-only after initialize; concurrent lookups on an initialised reader
// are safe as long as nobody calls initialize (or assigns to it) at the same time.
#ifndef VARDO_CONFIGFILEREADER_H
#define VARDO_CONFIGFILEREADER_H

#include "vardodefs.h"
#include "sstring.h"
#include "containers.h"
#include "refcount.h"

namespace Vardo400 {

class VARDO_API ConfigFileReader {
public:
    // One section: its name and its settings. Reference counted; shared by copies of
    // the reader. Immutable after construction.
    class VARDO_API SectionData : public CRefCount {
    public:
        // Exact, case-sensitive order of keys: code unit by code unit.
        struct KeyLess {
            bool operator()(const SWCharString& a, const SWCharString& b) const
            {
                return a.compareBinary(b.data()) < 0;
            }
        };
        typedef SIMap<SWCharString, SWCharString, KeyLess> KeyValueMap;

        // Parses body (the text between the section's "]" and the next section) into
        // settings; name is kept as given.
        SectionData(const SWCharString& name, const SWCharString& body);

        SWCharString getSectionName() const { return m_sectionName; }
        // Exact-key search. On success value receives the value (possibly empty).
        bool lookup(const SWCharString& key, SWCharString& value) const;
        // Appends every key, in key order, to keys.
        void getAllKeys(SIArray<SWCharString>& keys) const;

    protected:
        ~SectionData() override;

    private:
        SectionData(const SectionData&) = delete;
        SectionData& operator=(const SectionData&) = delete;

        SWCharString m_sectionName;
        KeyValueMap m_keyValues;
    };

    // Not initialised; every getValue answers its default.
    ConfigFileReader();
    // Copies share the sections.
    ConfigFileReader(const ConfigFileReader& other);
    ConfigFileReader& operator=(const ConfigFileReader& other);
    ~ConfigFileReader();

    // Reads and parses the file at path (UTF-8 text, as SFile::readString decodes it).
    // Once initialised, later calls return true at once and read nothing. False when the
    // file cannot be opened or read (traced as "ConfigFileReader::initialize() failed
    // to open config file. Reason is: %s.") or is empty; the reader then stays
    // uninitialised.
    bool initialize(const SWCharString& path);
    // As initialize, with the file's text already at hand: for text that comes from
    // elsewhere than a file. False for empty text.
    bool initializeFromText(const SWCharString& text);
    bool isInitialized() const { return m_bInitialized; }

    // The value of key in section, or defaultValue. The section name is trimmed; section
    // and key are compared exactly. When several sections share the name the last one
    // decides, even when it lacks the key. Before initialisation an assertion is
    // reported and the default returned.
    SWCharString getValue(const SWCharString& section, const SWCharString& key,
                          const SWCharString& defaultValue) const;
    // Replaces the contents of sections with every section name in file order
    // (repeated names repeated). False, with sections emptied, before initialisation.
    bool getSections(SIArray<SWCharString>& sections) const;
    // Replaces the contents of keys with the keys, in key order, of the named section
    // (trimmed, exact; of the last one when several share the name). False, with keys
    // emptied, when there is no such section or the reader is not initialised.
    bool enumerateSection(const SWCharString& section, SIArray<SWCharString>& keys) const;

private:
    void buildSections(const SWCharString& text);

    bool m_bInitialized;
    SIArray<CSmartRefCountPtr<SectionData>> m_sections;
};

} // namespace Vardo400

#endif
