// CS_Wrapper: a critical section owned by one object.
#ifndef VARDO_CS_WRAPPER_H
#define VARDO_CS_WRAPPER_H

#include "vardodefs.h"

namespace Vardo400 {

// A recursive lock: the thread that holds it may Lock() again and must Unlock() as many
// times. Safe as a static object (the constructor initialises the section, the destructor
// deletes it). Not copyable. Unlock() by a thread that does not hold it is undefined.
class VARDO_API CS_Wrapper {
public:
    CS_Wrapper();
    ~CS_Wrapper();
    // Enters the section, blocking while another thread holds it.
    void Lock();
    // Leaves the section once.
    void Unlock();

private:
    CS_Wrapper(const CS_Wrapper&) = delete;
    CS_Wrapper& operator=(const CS_Wrapper&) = delete;
    // Room for the platform's critical section object.
    void* m_cs[8];
};

} // namespace Vardo400

#endif
