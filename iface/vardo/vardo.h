// Umbrella header: every public header of the library.
#ifndef VARDO_VARDO_H
#define VARDO_VARDO_H

#include "vardodefs.h"
#include "sexception.h"
#include "schar.h"
#include "sstring.h"
#include "strace.h"
#include "containers.h"
#include "sresstring.h"
#include "senv.h"
#include "simplebuffer.h"
#include "DllWrap.h"
#include "version.h"
#include "interlocked.h"
#include "cs_wrapper.h"
#include "rwlock.h"
#include "ssemaphore.h"
#include "refcount.h"
#include "jtc.h"
#include "termthread.h"
#include "hackedcompump.h"
#include "csiprocess.h"
#include "ssystem.h"
#include "sdatetime.h"
#include "sfilesearch.h"
#include "sfilesys.h"
#include "registry.h"
#include "regfile.h"

#endif
