// Environment variables of the current process. Names reach here already checked
// (non-empty, no '=').
#ifndef VARDO_OS_ENV_H
#define VARDO_OS_ENV_H

#include "vardo/sstring.h"

namespace Vardo400 {
namespace os {

// The variable's value in value; false (value untouched) when unset.
bool envGet(const SWCharString& name, SWCharString& value);
// Sets the variable, or removes it when value is null. Returns success.
bool envSet(const SWCharString& name, const SWCharString* value);

} // namespace os
} // namespace Vardo400

#endif
