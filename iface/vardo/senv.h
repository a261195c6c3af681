// SEnv: the process environment as text.
#ifndef VARDO_SENV_H
#define VARDO_SENV_H

#include "vardodefs.h"
#include "sstring.h"

namespace Vardo400 {

// Reads and changes environment variables of the current process. Names and values are
// UTF-16 text; on Linux the environment holds bytes, read as UTF-8 (bytes that are not
// valid UTF-8 are taken one unit per byte, as Latin-1) and written as UTF-8.
// A name is valid when it is non-empty and holds no '='; with an invalid name get()
// gives empty text and the changes fail.
//
// Thread-safety: reading is safe while no thread changes the environment; set() and
// unset() must not run concurrently with any other environment access (in this library
// or in the C library). Never throws except std::bad_alloc.
class VARDO_API SEnv {
public:
    // The variable's value; empty text when it is unset (or set to empty text).
    static SWCharString get(const SWCharString& name);
    // Whether the variable exists (possibly with an empty value on Linux).
    static bool isSet(const SWCharString& name);
    // Sets the variable for this process and the children it starts afterwards.
    // On Windows an empty value removes the variable (the platform has no empty
    // values). Returns success.
    static bool set(const SWCharString& name, const SWCharString& value);
    // Removes the variable; true also when it did not exist.
    static bool unset(const SWCharString& name);
};

} // namespace Vardo400

#endif
