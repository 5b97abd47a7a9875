#pragma once
// Debug trace and operator message log of the host.
#include <functional>
#include <string>
#include <vector>

class CTraceUtility {
public:
    enum TRACE_DBG_LEVEL {
        TRACE_INFO = 1,     // informative lines
        TRACE_ERROR = 2,    // failures
        TRACE_FUNC = 4,     // operation entry and exit
        TRACE_CLEANUP = 16  // non-fatal clean-up failures
    };

    // printf-style debug line, appended with a timestamp to <root>/log/<file>.log
    // when the level passes the filter.
    static void WriteDebug(const char* file, TRACE_DBG_LEVEL level, const char* format, ...)
        __attribute__((format(printf, 3, 4)));

    // Operator message by identifier with its inserts. The inserts are counted
    // at compile time, so the catalogue can never read past them.
    template <typename... Inserts>
    static void WriteTrace(const char* file, const char* messageId, const Inserts&... inserts) {
        WriteTraceList(file, messageId, std::vector<std::string>{ToText(inserts)...});
    }
    static void WriteTraceList(const char* file, const char* messageId,
                               const std::vector<std::string>& inserts);

    // The operator text of a message, inserts filled in ("%1" ... "%9").
    static std::string FormatMessage(const std::string& messageId,
                                     const std::vector<std::string>& inserts);

    // Host program settings. Levels form a bit mask; 0 writes nothing.
    static void SetLevelMask(unsigned mask);
    static unsigned GetLevelMask();
    // Extra receiver of operator messages (the CLI host echoes them).
    static void SetMessageSink(std::function<void(const std::string& id, const std::string& text)> sink);

    // Capture for tests: every debug line (level filter ignored) and message.
    struct Message {
        std::string file;
        std::string id;
        std::vector<std::string> inserts;
    };
    struct DebugLine {
        std::string file;
        int level;
        std::string text;
    };
    static void StartCapture();
    static void StopCapture();
    static std::vector<DebugLine> CapturedDebug();
    static std::vector<Message> CapturedMessages();
    static void ClearCapture();

private:
    static std::string ToText(const char* s) { return s ? s : ""; }
    static std::string ToText(const std::string& s) { return s; }
};
