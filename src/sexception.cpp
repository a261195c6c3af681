#include "vardo/sexception.h"
#include "vardo/sstring.h"

namespace Vardo400 {

SException::~SException() {}

} // namespace Vardo400
