// SSystem: facts about the machine.
#ifndef VARDO_SSYSTEM_H
#define VARDO_SSYSTEM_H

#include "vardodefs.h"

namespace Vardo400 {

class VARDO_API SSystem {
public:
    // Number of processors the system offers (at least 1). Safe from any thread.
    static uint32_t GetNumberOfProcessors();
};

} // namespace Vardo400

#endif
