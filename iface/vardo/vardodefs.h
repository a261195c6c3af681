// Basic definitions shared by every public header of the library.
#ifndef VARDO_VARDODEFS_H
#define VARDO_VARDODEFS_H

#include <cstddef>
#include <cstdint>

// VARDO_API marks what the shared library exports; everything else is hidden.
#if defined(_WIN32)
#  if defined(VARDO_BUILDING_LIBRARY)
#    define VARDO_API __declspec(dllexport)
#  elif defined(VARDO_STATIC)
#    define VARDO_API
#  else
#    define VARDO_API __declspec(dllimport)
#  endif
// Windows exports class templates through their explicit instantiations.
#  define VARDO_TEMPLATE_API
#  define VARDO_INSTANTIATION_API VARDO_API
#else
#  define VARDO_API __attribute__((visibility("default")))
#  define VARDO_TEMPLATE_API __attribute__((visibility("default")))
#  define VARDO_INSTANTIATION_API
#endif


#endif
