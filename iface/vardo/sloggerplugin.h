// The exports of a logging plug-in, a library named "log_xn_NAME" (log_xn_NAME.dll on
// Windows, log_xn_NAME.so or liblog_xn_NAME.so on Linux) in the logger's plug-in folder.
//
// A plug-in exports these nine plain functions with unmangled names (extern "C", the
// platform's default calling convention). Texts are NUL-terminated UTF-16. A library
// that lacks any of them is not loaded. Texts the plug-in hands out stay its own until
// the logger gives each back through "FreeString".
//
//   int  Initialize(const unsigned short* cmdLine)      0: active; anything else: kept,
//                                                       inactive
//   void Terminate()                                    at unload, only when active
//   int  Trace(int type, const unsigned short* text)    <= 0: success
//   int  Log(int level, int category, unsigned long msgId, unsigned int count,
//            const unsigned short* const* params)       0: success; the array lives for
//                                                       the call only
//   int  SetParam(const unsigned short* name, const unsigned short* value)  <= 0: success
//   int  GetParam(const unsigned short* name, unsigned short** value)
//                                                       0 and a non-null *value: success
//   int  GetParamList(unsigned short** names, unsigned int capacity, unsigned int* count)
//                                                       fills up to capacity names and
//                                                       sets *count to how many; 0: success
//   void FreeString(unsigned short* text)               takes back a text handed out
//   int  GetDLLVersion()                                called once after loading
//
// The logger calls a plug-in from one thread at a time. A plug-in may call the library's
// trace functions; a trace made while the plug-in is handling one is refused.
#ifndef VARDO_SLOGGERPLUGIN_H
#define VARDO_SLOGGERPLUGIN_H

#if defined(_WIN32)
#  define VARDO_LOGPLUGIN_EXPORT extern "C" __declspec(dllexport)
#else
#  define VARDO_LOGPLUGIN_EXPORT extern "C" __attribute__((visibility("default")))
#endif

namespace Vardo400 {
namespace LogPlugin {

typedef int (*InitializeFn)(const unsigned short* cmdLine);
typedef void (*TerminateFn)();
typedef int (*TraceFn)(int type, const unsigned short* text);
typedef int (*LogFn)(int level, int category, unsigned long msgId, unsigned int count,
                     const unsigned short* const* params);
typedef int (*SetParamFn)(const unsigned short* name, const unsigned short* value);
typedef int (*GetParamFn)(const unsigned short* name, unsigned short** value);
typedef int (*GetParamListFn)(unsigned short** names, unsigned int capacity, unsigned int* count);
typedef void (*FreeStringFn)(unsigned short* text);
typedef int (*GetDLLVersionFn)();

// The largest number of names the logger asks of "GetParamList".
const unsigned int MaxParamNames = 64;

} // namespace LogPlugin
} // namespace Vardo400

#endif
