// Umbrella header: every public header of the library.
#ifndef VARDO_VARDO_H
#define VARDO_VARDO_H

#include "vardodefs.h"
#include "sexception.h"
#include "schar.h"
#include "sstring.h"
#include "strace.h"

#endif
