/*
 * core/log.cpp - the logging funnel.
 *
 * Every message of the library and of its users passes through Funnel().
 * It reads HV_DEBUG, HV_LOGFILE and HV_SILENT from the real process
 * environment once, drops what nobody will see before formatting anything,
 * formats into a 1024-byte stack buffer (longer text is cut), and hands the
 * text to the host's callback or to a standard stream, and to the log file.
 *
 * Limits: there is no lock.  The configuration is meant to be set at the
 * start of a process; concurrent appends to the log file are not ordered.
 */
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/internal.h"

namespace {

enum class Severity { Error, Debug, Print };

struct LogConfig {
    int logConfigured;
    int debugEnabled;
    int debugLevel;
    const char *logFile;
    int silent;
    HalvLogCallback logCallback;
    intptr_t logCallbackData;
};

constinit LogConfig config = {};

constexpr size_t kMessageLimit = 1024;

void ReadEnvironmentOnce() noexcept {
    if (config.logConfigured)
        return;
    config.logConfigured = 1;
    if (const char *debug = std::getenv("HV_DEBUG")) {
        config.debugEnabled = 1;
        int level = 0;
        if (halv::ScanInt(debug, &level))
            config.debugLevel = level;
    }
    config.logFile = std::getenv("HV_LOGFILE");
    if (std::getenv("HV_SILENT") != nullptr)
        config.silent = 1;
}

struct SeverityRoute {
    int kind;
    bool toStdout;
};

constexpr SeverityRoute kRoutes[] = {
    /* Error */ {HALV_LOG_ERROR, false},
    /* Debug */ {HALV_LOG_DEBUG, false},
    /* Print */ {HALV_LOG_PRINT, true},
};

void Funnel(Severity severity, const char *format, va_list args) noexcept {
    if (format == nullptr)
        return;
    ReadEnvironmentOnce();
    if (config.silent && config.logFile == nullptr && config.logCallback == nullptr)
        return;
    if (severity == Severity::Debug && !config.debugEnabled)
        return;

    char text[kMessageLimit];
    std::memset(text, 0, sizeof text);
    if (halv::FormatV(text, sizeof text, format, args) < 0)
        text[0] = '\0';

    const SeverityRoute &route = kRoutes[static_cast<int>(severity)];
    if (config.logCallback != nullptr)
        config.logCallback(text, route.kind, config.logCallbackData);
    else if (!config.silent)
        std::fprintf(route.toStdout ? stdout : stderr, "%s", text);

    if (config.logFile != nullptr) {
        if (FILE *file = std::fopen(config.logFile, "a")) {
            std::fprintf(file, "%s", text);
            std::fclose(file);
        }
    }
}

} // namespace

extern "C" {

HALV_API void HalvDebug(const char *format, ...) noexcept {
    va_list args;
    va_start(args, format);
    Funnel(Severity::Debug, format, args);
    va_end(args);
}

HALV_API int HalvError(const char *format, ...) noexcept {
    va_list args;
    va_start(args, format);
    Funnel(Severity::Error, format, args);
    va_end(args);
    return -1;
}

HALV_API void HalvPrintf(const char *format, ...) noexcept {
    va_list args;
    va_start(args, format);
    Funnel(Severity::Print, format, args);
    va_end(args);
}

HALV_API void HalvAbort(const char *format, ...) noexcept {
    va_list args;
    va_start(args, format);
    Funnel(Severity::Error, format, args);
    va_end(args);
    std::abort();
}

HALV_API void HalvSetDebug(int enabled) noexcept {
    config.logConfigured = 1;
    config.debugEnabled = enabled;
}

HALV_API void HalvSetDebugLevel(int level) noexcept {
    config.logConfigured = 1;
    config.debugEnabled = 1;
    config.debugLevel = level;
}

HALV_API int HalvIsDebug(void) noexcept {
    ReadEnvironmentOnce();
    return config.debugEnabled;
}

HALV_API int HalvGetDebugLevel(void) noexcept {
    ReadEnvironmentOnce();
    return config.debugLevel;
}

HALV_API void HalvSetLoggingCallback(HalvLogCallback fn, intptr_t userWord) noexcept {
    config.logCallback = fn;
    config.logCallbackData = userWord;
}

} // extern "C"
