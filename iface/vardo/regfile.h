// SRegFile: registry keys and values in the regedit text format, as "regedit /e" writes
// and "regedit /s" reads it:
//
//   Windows Registry Editor Version 5.00
//
//   [HKEY_LOCAL_MACHINE\Software\Quorvane\Suite 12.0\Logging]
//   "loggingPath"="C:\\logs"            REG_SZ, with \\ and \" escaped
//   @="default value"                    the unnamed value
//   "MaxLogFileSize"=dword:00100000      REG_DWORD
//   "Blob"=hex:01,02,ff                  REG_BINARY
//   "Path"=hex(2):25,00,41,00,00,00      REG_EXPAND_SZ; hex(7) REG_MULTI_SZ, hex(b) REG_QWORD,
//                                        hex(N) any type N, bytes as stored
//   "Old"=-                              deletes the value
//   [-HKEY_LOCAL_MACHINE\Software\Old]   deletes the key and everything below it
//
// Long hex data continues on the next line after ",\" (the next line's leading blanks are
// skipped); lines starting with ";" are comments. Files are read as UTF-16LE or UTF-16BE
// with a byte-order mark, or UTF-8 with or without one; written text is meant for
// UTF-16LE with a byte-order mark and CR LF line ends, as regedit writes it.
//
// Key paths start with a root: HKEY_CLASSES_ROOT, HKEY_CURRENT_USER, HKEY_LOCAL_MACHINE,
// HKEY_USERS, HKEY_CURRENT_CONFIG, or their short forms HKCR, HKCU, HKLM, HKU, HKCC.
//
// All functions are thread-safe (they share no state) and never throw except
// std::bad_alloc.
#ifndef VARDO_REGFILE_H
#define VARDO_REGFILE_H

#include "vardodefs.h"
#include "sstring.h"
#include "registry.h"
#include "simplebuffer.h"

namespace Vardo400 {

// Receives the entries of a regedit file in file order. A false answer stops the parse.
class VARDO_API SRegFileSink {
public:
    virtual ~SRegFileSink();
    // "[KEY]" (bDelete false) or "[-KEY]" (bDelete true); fullPath as written in the file,
    // without the brackets and the minus.
    virtual bool onKey(const SWCharString& fullPath, bool bDelete) = 0;
    // A value of the latest key: name empty for "@", the type and its exact bytes.
    virtual bool onValue(const SWCharString& name, uint32_t type, const unsigned char* data,
                         uint32_t size) = 0;
    // "NAME"=- : the value is to be deleted.
    virtual bool onDeleteValue(const SWCharString& name) = 0;
};

class VARDO_API SRegFile {
public:
    // The first line of every file: "Windows Registry Editor Version 5.00".
    static const char* const Header;

    // Turns file bytes into text by their byte-order mark (UTF-16LE, UTF-16BE, UTF-8; none
    // means UTF-8). False, with text empty, for malformed text or a NUL character.
    static bool Decode(const unsigned char* bytes, size_t size, SWCharString& text);

    // Parses text (header line first) and hands the entries to sink. False on the first
    // syntax error (error receives "line N: reason") or when the sink refuses; entries
    // before that have been handed over already.
    static bool Parse(const SWCharString& text, SRegFileSink& sink, SWCharString* error = 0);

    // "[fullPath]" or "[-fullPath]" plus CR LF.
    static SWCharString FormatKey(const SWCharString& fullPath, bool bDelete = false);
    // The value's line(s), CR LF ended: a quoted string for a REG_SZ whose bytes are
    // exactly printable text plus one terminator, dword: for a 4-byte REG_DWORD, else hex.
    // False when the name holds a line break (regedit text cannot carry it).
    static bool FormatValue(const SWCharString& name, uint32_t type, const unsigned char* data,
                            uint32_t size, SWCharString& text);

    // Splits "ROOT\\path" into the root handle and the path below it (no trailing
    // backslash). False for an unknown root.
    static bool SplitKeyPath(const SWCharString& fullPath, RegKeyHandle& root, SWCharString& path);
    // The long name of a predefined root ("HKEY_LOCAL_MACHINE"); empty for other handles.
    static SWCharString RootName(RegKeyHandle root);

    // The whole file text for the tree at fullPath: header, then every key depth-first
    // (sub-keys in enumeration order) with its values in enumeration order. False when the
    // key is missing or cannot be read or a name cannot be written (error says which).
    static bool Export(const SWCharString& fullPath, SWCharString& text, SWCharString* error = 0);
    // Decodes and parses the bytes completely, then applies them to the registry: keys
    // are created, values written with their types and bytes, deletions carried out.
    // Nothing is changed when the file does not parse. False on the first failure (error
    // says which line or key).
    static bool Import(const unsigned char* bytes, size_t size, SWCharString* error = 0);
};

// The text form of value types and data, as operators type and read them ("vardo reg"):
//   types: REG_NONE, REG_SZ, REG_EXPAND_SZ, REG_BINARY, REG_DWORD, REG_DWORD_BIG_ENDIAN,
//     REG_LINK, REG_MULTI_SZ, REG_RESOURCE_LIST, REG_FULL_RESOURCE_DESCRIPTOR,
//     REG_RESOURCE_REQUIREMENTS_LIST, REG_QWORD (codes 0 to 11);
//   data: REG_SZ and REG_EXPAND_SZ as their text; REG_DWORD and REG_QWORD as a number
//     (read as decimal digits or "0x" and hex digits, shown as "0x" and lower-case hex);
//     REG_MULTI_SZ as its strings joined by the two characters \0; any other type as hex
//     bytes (read as pairs of hex digits with commas and blanks allowed between them,
//     shown as upper-case pairs without separators).
// Thread-safe (no shared state); nothing throws except std::bad_alloc.
class VARDO_API SRegText {
public:
    // The name of a type code from 0 to 11; null for other codes.
    static const char* TypeName(uint32_t type);
    // TypeName, or "0x" and the code in upper-case hex for a code without a name.
    static SWCharString TypeText(uint32_t type);
    // The types that can be written from text: REG_NONE, REG_SZ, REG_EXPAND_SZ,
    // REG_BINARY, REG_DWORD, REG_MULTI_SZ, REG_QWORD, in any letter case. False for any
    // other name.
    static bool ParseType(const SWCharString& name, uint32_t& type);
    // A value's bytes from its text form: REG_SZ and REG_EXPAND_SZ with their terminator;
    // REG_DWORD 4 and REG_QWORD 8 bytes, little-endian; REG_MULTI_SZ each string with its
    // terminator, then one more (an empty text gives the lone closing terminator). False,
    // with data empty, when the text does not fit: a number with a sign, a blank, another
    // character or beyond the type's range; hex with an odd digit count or another
    // character.
    static bool ParseData(uint32_t type, const SWCharString& text, SSimpleBuffer& data);
    // The text form of a value's bytes. REG_SZ and REG_EXPAND_SZ stop at the first zero
    // unit; REG_MULTI_SZ ends at its first empty string; a REG_DWORD that is not 4 bytes or
    // a REG_QWORD that is not 8 bytes shows as hex bytes.
    static SWCharString FormatData(uint32_t type, const unsigned char* data, uint32_t size);
};

} // namespace Vardo400

#endif
