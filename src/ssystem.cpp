// SSystem.
#include "vardo/ssystem.h"

#include "os/os_sync.h"

namespace Vardo400 {

uint32_t SSystem::GetNumberOfProcessors()
{
    return os::processorCount();
}

} // namespace Vardo400
