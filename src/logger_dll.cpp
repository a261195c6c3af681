// LoggingDLL: a logging plug-in library behind the ILogger interface.
#include "vardo/slogger.h"
#include "vardo/sloggerplugin.h"

#include <cstring>
#include <vector>

namespace Vardo400 {

struct LoggingDLL::Exports {
    LogPlugin::InitializeFn initialize = nullptr;
    LogPlugin::TerminateFn terminate = nullptr;
    LogPlugin::TraceFn trace = nullptr;
    LogPlugin::LogFn log = nullptr;
    LogPlugin::SetParamFn setParam = nullptr;
    LogPlugin::GetParamFn getParam = nullptr;
    LogPlugin::GetParamListFn getParamList = nullptr;
    LogPlugin::FreeStringFn freeString = nullptr;
    LogPlugin::GetDLLVersionFn getDLLVersion = nullptr;
};

namespace {

SWCharString ascii(const char* s)
{
    SWCharString r;
    r.concatFromAscii(s, static_cast<unsigned int>(std::strlen(s)));
    return r;
}

} // namespace

LoggingDLL::LoggingDLL() : m_nVersion(0), m_bActive(false) {}

LoggingDLL::~LoggingDLL()
{
    try {
        if (m_bActive && m_pExports)
            m_pExports->terminate();
    } catch (...) {
    }
    m_pExports.reset();
    m_library.unload();
}

bool LoggingDLL::Load(const SWCharString& name)
{
    m_pExports.reset();
    m_bActive = false;
    m_loadError.empty();
    try {
        m_library.load(name);
    } catch (const SException& e) {
        m_loadError = e.summary();
        return false;
    }
    std::unique_ptr<Exports> x(new Exports());
    // Resolved in the documented order; the first missing one is named.
    const char* missing = nullptr;
    if (!m_library.resolve("Initialize", x->initialize))
        missing = "Initialize";
    else if (!m_library.resolve("Terminate", x->terminate))
        missing = "Terminate";
    else if (!m_library.resolve("Trace", x->trace))
        missing = "Trace";
    else if (!m_library.resolve("Log", x->log))
        missing = "Log";
    else if (!m_library.resolve("SetParam", x->setParam))
        missing = "SetParam";
    else if (!m_library.resolve("GetParam", x->getParam))
        missing = "GetParam";
    else if (!m_library.resolve("GetParamList", x->getParamList))
        missing = "GetParamList";
    else if (!m_library.resolve("FreeString", x->freeString))
        missing = "FreeString";
    else if (!m_library.resolve("GetDLLVersion", x->getDLLVersion))
        missing = "GetDLLVersion";
    if (missing) {
        m_loadError = ascii("missing export ") + ascii(missing);
        m_library.unload();
        return false;
    }
    m_nVersion = x->getDLLVersion();
    m_pExports = std::move(x);
    return true;
}

bool LoggingDLL::Initialize(const CParamLineArgs& args)
{
    if (!m_pExports)
        return false;
    SWCharString line = args.GetCmdLine();
    m_bActive = m_pExports->initialize(line.data()) == 0;
    return m_bActive;
}

bool LoggingDLL::IsActive()
{
    return m_bActive;
}

bool LoggingDLL::GetParamList(SIArray<SWCharString>& names)
{
    if (!m_pExports)
        return false;
    unsigned short* list[LogPlugin::MaxParamNames] = {};
    unsigned int count = 0;
    int rc = m_pExports->getParamList(list, LogPlugin::MaxParamNames, &count);
    if (count > LogPlugin::MaxParamNames)
        count = LogPlugin::MaxParamNames;
    // Every text handed out goes back, whatever the result says.
    for (unsigned int i = 0; i < count; ++i) {
        if (!list[i])
            continue;
        if (rc == 0)
            names.push_back(SWCharString(list[i]));
        m_pExports->freeString(list[i]);
    }
    return rc == 0;
}

bool LoggingDLL::SetParam(const SWCharString& name, const SWCharString& value)
{
    return m_pExports && m_pExports->setParam(name.data(), value.data()) <= 0;
}

bool LoggingDLL::GetParam(const SWCharString& name, SWCharString& value)
{
    if (!m_pExports)
        return false;
    unsigned short* out = nullptr;
    int rc = m_pExports->getParam(name.data(), &out);
    if (!out)
        return false;
    if (rc == 0)
        value = SWCharString(out);
    m_pExports->freeString(out);
    return rc == 0;
}

bool LoggingDLL::Trace(int type, const SWCharString& message)
{
    return m_pExports && m_pExports->trace(type, message.data()) <= 0;
}

bool LoggingDLL::Log(SLogger::loglevel level, SLogger::logcategory category, unsigned long msgId,
                     const SIArray<SWCharString>& params)
{
    if (!m_pExports)
        return false;
    std::vector<const unsigned short*> texts(params.size());
    for (size_t i = 0; i < params.size(); ++i)
        texts[i] = params[i].data();
    return m_pExports->log(static_cast<int>(level), static_cast<int>(category), msgId,
                           static_cast<unsigned int>(texts.size()),
                           texts.empty() ? nullptr : texts.data()) == 0;
}

} // namespace Vardo400
