// SStackWalk: the portable part of the stack walk.
#include "vardo/sstackwalk.h"
#include "vardo/cs_wrapper.h"

namespace Vardo400 {

CS_Wrapper SStackWalk::m_lockCS;

SStackWalk::SStackWalk() {}
SStackWalk::~SStackWalk() {}

bool SStackWalk::StackWalkAll(SWCharString&, int) { return false; }
bool SStackWalk::StackWalkAll(void*, SWCharString&, int) { return false; }
SWCharString SStackWalk::DescribeAddress(uintptr_t) { return SWCharString(); }

} // namespace Vardo400
