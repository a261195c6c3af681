// SEnv: name checks here, the environment itself in the platform layer.
#include "vardo/senv.h"

#include "os/os_env.h"

namespace Vardo400 {

static bool validName(const SWCharString& name)
{
    if (name.isEmpty())
        return false;
    for (const unsigned short* p = name.data(); *p; ++p)
        if (*p == '=')
            return false;
    return true;
}

SWCharString SEnv::get(const SWCharString& name)
{
    SWCharString value;
    if (validName(name) && !os::envGet(name, value))
        value.empty();
    return value;
}

bool SEnv::isSet(const SWCharString& name)
{
    SWCharString value;
    return validName(name) && os::envGet(name, value);
}

bool SEnv::set(const SWCharString& name, const SWCharString& value)
{
    return validName(name) && os::envSet(name, &value);
}

bool SEnv::unset(const SWCharString& name)
{
    return validName(name) && os::envSet(name, 0);
}

} // namespace Vardo400
