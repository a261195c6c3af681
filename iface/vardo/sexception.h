// Root of the library's exception classes.
#ifndef VARDO_SEXCEPTION_H
#define VARDO_SEXCEPTION_H

#include "vardodefs.h"

namespace Vardo400 {

class SWCharString;

// Abstract root of every exception the library throws. Holds no data.
class VARDO_API SException {
public:
    virtual ~SException();
    // Names the error; each derived class builds it from its own code and fields.
    virtual SWCharString toString() const = 0;
    // toString(), then ":", then the derived class's detail text.
    virtual SWCharString summary() const = 0;
protected:
    SException() {}
};

} // namespace Vardo400

#endif
