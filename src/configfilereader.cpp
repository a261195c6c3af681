// ConfigFileReader: sectioned key = value files.
#include "vardo/configfilereader.h"
#include "vardo/sfile.h"
#include "vardo/strace.h"

#include <new>

namespace Vardo400 {

namespace {

const unsigned short kLineFeed = '\n';
const unsigned short kOpenBracket = '[';
const unsigned short kCloseBracket = ']';
const unsigned short kEquals = '=';

// Index of the first c in p[from, n), or n.
size_t findUnit(const unsigned short* p, size_t from, size_t n, unsigned short c)
{
    for (size_t i = from; i < n; ++i)
        if (p[i] == c)
            return i;
    return n;
}

// Index of the line feed of the first "\n[" in p[from, n), or n.
size_t findSectionStart(const unsigned short* p, size_t from, size_t n)
{
    for (size_t i = from; i + 1 < n; ++i)
        if (p[i] == kLineFeed && p[i + 1] == kOpenBracket)
            return i;
    return n;
}

SWCharString trimmedRange(const SWCharString& text, size_t from, size_t to)
{
    SWCharString s = text.mid(static_cast<unsigned int>(from), static_cast<unsigned int>(to - from));
    s.trim();
    return s;
}

} // namespace

// ---- SectionData ----------------------------------------------------------------------------

ConfigFileReader::SectionData::SectionData(const SWCharString& name, const SWCharString& body)
    : m_sectionName(name)
{
    const unsigned short* p = body.data();
    const size_t n = body.getLength();
    size_t pos = 0;
    while (pos < n) {
        size_t lineEnd = findUnit(p, pos, n, kLineFeed);
        SWCharString line = trimmedRange(body, pos, lineEnd);
        pos = lineEnd + 1;
        if (line.isEmpty())
            continue;
        const unsigned short* l = line.data();
        size_t equals = findUnit(l, 0, line.getLength(), kEquals);
        if (equals == line.getLength())
            break;   // no assignment: the rest of the section is not read
        SWCharString key = line.left(static_cast<unsigned int>(equals));
        // The key as written is looked up first; only a key without blanks around it
        // can already be there, and then the earlier value stays.
        if (m_keyValues.find(key) != m_keyValues.end())
            continue;
        SWCharString value = line.mid(static_cast<unsigned int>(equals + 1));
        key.trim();
        value.trim();
        m_keyValues[key] = value;
    }
}

ConfigFileReader::SectionData::~SectionData() {}

bool ConfigFileReader::SectionData::lookup(const SWCharString& key, SWCharString& value) const
{
    KeyValueMap::const_iterator it = m_keyValues.find(key);
    if (it == m_keyValues.end())
        return false;
    value = it->second;
    return true;
}

void ConfigFileReader::SectionData::getAllKeys(SIArray<SWCharString>& keys) const
{
    keys.reserve(keys.size() + m_keyValues.size());
    for (const KeyValueMap::value_type& kv : m_keyValues)
        keys.push_back(kv.first);
}

// ---- ConfigFileReader -----------------------------------------------------------------------

ConfigFileReader::ConfigFileReader() : m_bInitialized(false) {}

ConfigFileReader::ConfigFileReader(const ConfigFileReader& other)
    : m_bInitialized(other.m_bInitialized), m_sections(other.m_sections)
{
}

ConfigFileReader& ConfigFileReader::operator=(const ConfigFileReader& other)
{
    if (this != &other) {
        m_sections = other.m_sections;
        m_bInitialized = other.m_bInitialized;
    }
    return *this;
}

ConfigFileReader::~ConfigFileReader() {}

bool ConfigFileReader::initialize(const SWCharString& path)
{
    if (m_bInitialized)
        return true;
    SWCharString text;
    try {
        SFile file(path);
        file.open(SFile::readOnly, SFile::readMask, SFile::denyNothing);
        text = file.readString();
    } catch (const SFileException& e) {
        if (ShouldTrace(0, __FILE__))
            STrace("ConfigFileReader::initialize() failed to open config file. Reason is: %s.",
                   e.getReason());
        return false;
    }
    return initializeFromText(text);
}

bool ConfigFileReader::initializeFromText(const SWCharString& text)
{
    if (m_bInitialized)
        return true;
    if (text.isEmpty())
        return false;
    buildSections(text);
    m_bInitialized = true;
    return true;
}

void ConfigFileReader::buildSections(const SWCharString& text)
{
    const unsigned short* p = text.data();
    const size_t n = text.getLength();
    size_t pos = findUnit(p, 0, n, kOpenBracket);
    while (pos < n) {
        const size_t nameStart = pos + 1;
        const size_t nameEnd = findUnit(p, nameStart, n, kCloseBracket);
        const size_t bodyStart = nameEnd < n ? nameEnd + 1 : n;
        const size_t bodyEnd = findSectionStart(p, bodyStart, n);

        SWCharString name = trimmedRange(text, nameStart, nameEnd);
        SWCharString body = trimmedRange(text, bodyStart, bodyEnd);
        SectionData* section = new (std::nothrow) SectionData(name, body);
        if (section)
            m_sections.push_back(CSmartRefCountPtr<SectionData>(section));
        else
            VARDO_ASSERT_TEXT("section != NULL");

        // Resume at the bracket after the line feed; it is the next "[" for certain.
        pos = bodyEnd < n ? bodyEnd + 1 : n;
    }
}

SWCharString ConfigFileReader::getValue(const SWCharString& section, const SWCharString& key,
                                        const SWCharString& defaultValue) const
{
    if (!m_bInitialized) {
        VARDO_ASSERT_MSG(m_bInitialized, "ConfigFileReader::getValue() called before initialize()");
        return defaultValue;
    }
    SWCharString name = section;
    name.trim();
    SWCharString result = defaultValue;
    // Every section of that name is consulted, so the last one decides.
    for (const CSmartRefCountPtr<SectionData>& s : m_sections) {
        if (s->getSectionName().compareFast(name) != 0)
            continue;
        if (!s->lookup(key, result))
            result = defaultValue;
    }
    return result;
}

bool ConfigFileReader::getSections(SIArray<SWCharString>& sections) const
{
    sections.clear();
    if (!m_bInitialized)
        return false;
    sections.reserve(m_sections.size());
    for (const CSmartRefCountPtr<SectionData>& s : m_sections)
        sections.push_back(s->getSectionName());
    return true;
}

bool ConfigFileReader::enumerateSection(const SWCharString& section, SIArray<SWCharString>& keys) const
{
    keys.clear();
    if (!m_bInitialized)
        return false;
    SWCharString name = section;
    name.trim();
    const SectionData* found = nullptr;
    for (const CSmartRefCountPtr<SectionData>& s : m_sections)
        if (s->getSectionName().compareFast(name) == 0)
            found = s.get();
    if (!found)
        return false;
    found->getAllKeys(keys);
    return true;
}

} // namespace Vardo400
