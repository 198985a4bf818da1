#ifndef NORVA_PLATFORM_LOGGER_H
#define NORVA_PLATFORM_LOGGER_H

#include <atomic>
#include <functional>
#include <string>

/// @file
/// The process logger.

/// Level of a log line: lines above the threshold (configuration key
/// LogLevel) are dropped. The data layer writes every line at LOG_LEVEL_5.
enum LOG_CONST : int {
    LOG_LEVEL_0 = 0,  ///< level 0 (always written)
    LOG_LEVEL_1,  ///< level 1
    LOG_LEVEL_2,  ///< level 2
    LOG_LEVEL_3,  ///< level 3 (the default threshold)
    LOG_LEVEL_4,  ///< level 4
    LOG_LEVEL_5,  ///< level 5 (every line of the data layer)
    LOG_LEVEL_6,  ///< level 6
    LOG_LEVEL_7,  ///< level 7
    LOG_LEVEL_8,  ///< level 8
    LOG_LEVEL_9  ///< level 9
};

/// The process logger. Lines go to the file named by the configuration key
/// LogFile (appended, UTF-8), else to standard error, or to a sink when one is set.
class Logger {
public:
    /// Receives each line instead of the file or standard error.
    using Sink = std::function<void(LOG_CONST level, const std::wstring& line)>;

    /// The one logger of the process, created on the first call (thread-safe); never null.
    static Logger* Initialise();

    /// Writes one line when level is at or below the threshold. The format is
    /// printf-like and wide: %s takes narrow UTF-8 text, %ls wide text; integer,
    /// floating, %c, %p and %% conversions take flags, width and precision.
    /// A conversion the logger does not know is copied as it stands.
    void log(LOG_CONST level, const wchar_t* format, ...);

    /// Lines with a level above the threshold are dropped before any formatting.
    /// The initial threshold is the configuration's LogLevel (default 3).
    void SetLevel(int threshold);
    /// The current threshold.
    int GetLevel() const;

    /// Sends each line to sink instead of the default destination, exactly as
    /// formatted. An empty function restores the default destination. The sink
    /// is called with the logger's lock held, so lines never interleave; it must
    /// not call SetSink. A line it logs itself goes to the default destination.
    void SetSink(Sink sink);

private:
    Logger();
    ~Logger();
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    void Emit(LOG_CONST level, const std::wstring& line);

    struct Output;
    std::atomic<int> m_threshold;
    Output* m_pOutput;
};

#endif
