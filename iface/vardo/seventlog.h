// SEventLog: events written to the operating system's event log, or to a disk file.
#ifndef VARDO_SEVENTLOG_H
#define VARDO_SEVENTLOG_H

#include "vardodefs.h"
#include "sstring.h"
#include "sfile.h"

namespace Vardo400 {

// One writer of events.
//
// The system's event log: Windows registers an event source (RegisterEventSourceW) and
// reports each event with ReportEventW; Linux writes to syslog (which the journal reads),
// identified by the source name. openSource chooses it.
//
// The disk variant: openLogFile opens a text file that receives one line per event:
//   "M/d/yy   H:mm:ss    " (local time), the event type's name ("Error", "Warning",
//   "Information", "Debug", "AuditSuccess", "AuditFailure", or "Type N" for anything
//   else), four spaces, "Category C, Event E", six spaces, the message, "\n".
// When a line would take the file past the maximum size, the file is rotated first:
// numbered copies stand beside it, stem + "_" + N + extension ("event_1.log" is the
// newest, "event_2.log" the one before, ...); each rotation moves every copy up by one,
// drops the one numbered maxLogFiles, renames the file to number 1 and starts it anew.
// A maximum size of 0 or less turns rotation off.
//
// The message of an event is built with SResString from the event id's template, the
// event's strings filling %1, %2, ... in order. The library has no message tables: the
// template of every id is the strings joined by one space ("%1 %2 ... %n"), and an event
// without strings has the message "Event E" (its id).
//
// Event types: errorType 1, warningType 2, informationType 4, debugType 256, auditSuccess
// 8, auditFailure 16 (the Windows values). Any other type raises the assertion
// "(wType == EVENTLOG_ERROR_TYPE) || ... || (wType == EVENTLOG_AUDIT_FAILURE)" and the
// event is still written (Windows: as given; syslog: as information).
//
// Thread-safety: an object is not synchronised; use one per thread or lock around it.
class VARDO_API SEventLog {
public:
    enum EventTypes {
        errorType = 0x0001,
        warningType = 0x0002,
        informationType = 0x0004,
        auditSuccess = 0x0008,
        auditFailure = 0x0010,
        debugType = 0x0100
    };
    // Maximum size of the disk file in bytes, by default.
    static constexpr int64_t DEFAULT_MAXFILE_SIZE = 1024000;
    // Highest number of a rotated copy of the disk file.
    static constexpr int maxLogFiles = 999;
    // The disk file's name when none is given (on platforms without a system event log).
    static const char* const defaultFileName;   // "event.log"

    // fileName: the disk variant's file (empty: "event.log" in the working directory,
    // except on Windows, which has a system event log and keeps the name empty).
    // maxFileSize: rotation bound in bytes (0 or less: never rotate).
    explicit SEventLog(const SWCharString& fileName = SWCharString(),
                       int64_t maxFileSize = DEFAULT_MAXFILE_SIZE);
    // Closes the source and the file.
    ~SEventLog();

    // Opens the system's event log under sourceName. serverName: Windows only, the
    // computer whose event log receives the events (empty: this one). categoryCount and
    // typesSupported describe the source (the number of categories of its message file,
    // the event types it reports); they are kept for the caller and reported by
    // getCategoryCount/getTypesSupported. True when the source is open. An empty source
    // name opens the disk file instead (openLogFile(false)).
    bool openSource(const SWCharString& serverName, const SWCharString& sourceName,
                    long categoryCount = 0, long typesSupported = 0);
    // Closes what openSource opened. True when something was open.
    bool closeSource();

    // Writes one event: see the class comment. strings holds numStrings texts (null
    // entries are skipped); userSid and data are passed to the Windows event log as they
    // are (ignored elsewhere). True when the event was written: to the system's log when
    // a source is open, else to the disk file when it is open (else false).
    bool reportEvent(unsigned short type, const unsigned short** strings, unsigned short category,
                     unsigned short numStrings, uint32_t eventId, const void* userSid = 0,
                     uint32_t dataSize = 0, const void* data = 0);
    // The same with one string and event id 0.
    bool reportEvent(unsigned short type, const SWCharString& string, unsigned short category,
                     const void* userSid = 0, uint32_t dataSize = 0, const void* data = 0);
    // reportEvent(informationType, text, category 0, event id 0, no user, no data).
    bool writeStrToLog(const SWCharString& text);

    long getCategoryCount() const { return m_nCategoryCount; }
    long getTypesSupported() const { return m_nTypesSupported; }
    // True while a system event source is open.
    bool isSourceOpen() const { return m_pSource != 0; }
    int64_t getMaxFileSize() const { return m_nMaxFileSize; }

protected:
    // Opens the disk file: for appending when reset is false, empty when it is true; the
    // directory must exist. False when the name is empty or the file cannot be opened.
    bool openLogFile(bool reset);
    void closeLogFile();
    // True when events go to the disk file (no system source, file open).
    bool useDiskFile() const;
    // Appends text (rotating first when needed). False when the file is not open or the
    // write fails.
    bool writeToFile(const SWCharString& text);
    // The disk file's full name, rebuilt from its parts.
    SWCharString getLogFileName() const;
    void getLogFileNameComponents(SWCharString& driveAndDir, SWCharString& name,
                                  SWCharString& ext) const;
    void setLogFileNameComponents(const SWCharString& driveAndDir, const SWCharString& name,
                                  const SWCharString& ext);
    // Splits fileName into the three parts kept by the object.
    void splitLogFileName(const SWCharString& fileName);
    // One disk line: local time "M/d/yy   H:mm:ss    ", first, four spaces, second, six
    // spaces, third, "\n".
    static SWCharString formatString(const SWCharString& first, const SWCharString& second,
                                     const SWCharString& third);
    // The name of the rotated copy number n (1..maxLogFiles).
    SWCharString getRotatedFileName(int n) const;

private:
    SEventLog(const SEventLog&) = delete;
    SEventLog& operator=(const SEventLog&) = delete;
    bool rotate();

    void* m_pSource;             // the platform's event source; null when none
    SWCharString m_driveAndDir;  // with its trailing separator, or empty
    SWCharString m_fileName;     // stem
    SWCharString m_fileExt;      // with its full stop, or empty
    int64_t m_nMaxFileSize;
    long m_nCategoryCount;
    long m_nTypesSupported;
    SFile m_file;
};

} // namespace Vardo400

#endif
