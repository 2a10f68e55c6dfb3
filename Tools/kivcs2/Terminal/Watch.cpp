// Draws pages in place, or lines, until an interrupt.
#include "Terminal/Watch.h"

#include "Failure.h"
#include "Terminal/EndSignals.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <memory>

namespace tool
{
namespace
{

using Clock = std::chrono::steady_clock;

std::string timeOfDay()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    ::localtime_r(&now, &local);
    return print("%02d:%02d:%02d", local.tm_hour, local.tm_min, local.tm_sec);
}

// Draws each page over the previous one: moves up over its lines, clears each line to its end, and then
// everything below. Cuts a page that is too high or too wide, because lines that scroll or wrap cannot be
// overwritten.
class Screen
{
public:
    void draw(std::string_view page)
    {
        winsize size{};
        if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0)
            size = {24, 80, 0, 0};
        // After a change of width the terminal has wrapped the lines again, so clear the screen.
        if (m_columns != 0 && (m_columns != size.ws_col || m_rows != size.ws_row))
            out().write("\x1b[H\x1b[2J");
        else if (m_drawn > 0)
            out().write(print("\r\x1b[%zuA", m_drawn));
        m_columns = size.ws_col;
        m_rows = size.ws_row;
        m_drawn = 0;
        while (!page.empty() && m_drawn + 1 < m_rows)
        {
            const size_t end = std::min(page.find('\n'), page.size());
            out().write(shortened(page.substr(0, end), m_columns) + "\x1b[K\n");
            page.remove_prefix(std::min(end + 1, page.size()));
            ++m_drawn;
        }
        out().write("\x1b[J");
        out().flush();
    }
    // Clears the line that shows the terminal's "^C".
    static void leave()
    {
        out().write("\r\x1b[K");
        out().flush();
    }

private:
    size_t m_columns = 0;
    size_t m_rows = 0;
    size_t m_drawn = 0; // lines
};

} // namespace

Word &addWatchWord(Word &command, const bool &json, const std::string &description,
                   int (*run)(const WatchOptions &options, bool json))
{
    const auto options = std::make_shared<WatchOptions>();
    Word &word = command.word("watch", description);
    word.about("On a terminal each reading replaces the one before; elsewhere it is a line, and\n"
               "with --json an object on a line.");
    word.option("--every", options->seconds, {0.1, 86400.0},
                "Seconds from one reading to the next, otherwise 1");
    word.option("--count", options->readings, Bounds{1}, "End after this many readings");
    return word.runs([&json, options, run] { return run(*options, json); });
}

int watch(const WatchOptions &options, bool json, const Watched &watched)
{
    const EndSignals signals;
    const bool inPlace = !json && isScreen(STDOUT_FILENO);
    const auto interval =
        std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>{options.seconds});
    Screen screen;
    Clock::time_point next = Clock::now();
    for (uint64_t reading = 1;; ++reading)
    {
        if (inPlace)
        {
            watched.page();
            screen.draw(out().take());
        }
        else
        {
            if (json)
                out().write(jsonText(watched.json()) + "\n");
            else
                out().line(timeOfDay() + "  " + watched.line());
            out().flush();
        }
        if (reading == options.readings)
            return kExitYes;
        next = std::max(next + interval, Clock::now()); // do not catch up after a slow reading
        if (!signals.waitUntil(next))
            continue;
        if (inPlace)
            Screen::leave();
        return kExitYes;
    }
}

} // namespace tool
