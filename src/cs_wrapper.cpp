// CS_Wrapper.
#include "vardo/cs_wrapper.h"

#include "os/os_sync.h"

namespace Vardo400 {

CS_Wrapper::CS_Wrapper()
{
    static_assert(sizeof(m_cs) >= os::CriticalSectionStorage, "room for the critical section");
    os::initCriticalSection(m_cs);
}

CS_Wrapper::~CS_Wrapper()
{
    os::deleteCriticalSection(m_cs);
}

void CS_Wrapper::Lock()
{
    os::enterCriticalSection(m_cs);
}

void CS_Wrapper::Unlock()
{
    os::leaveCriticalSection(m_cs);
}

} // namespace Vardo400
