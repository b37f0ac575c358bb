#pragma once
// A progress bar on standard error with the wall-clock rate of lines and the time left,
// fitted to the terminal's width, drawn at most ten times a second, and only when
// standard error is a terminal: piped or logged runs stay quiet.

#include <QElapsedTimer>
#include <algorithm>
#include <cstdio>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

namespace cli {

class Progress {
public:
    explicit Progress(int total) : total_(total), shown_(isatty(STDERR_FILENO) == 1) { timer_.start(); }
    ~Progress()
    {
        if (shown_)
            std::fprintf(stderr, "\n");
    }

    void update(int done)
    {
        if (!shown_ || (done < total_ && timer_.elapsed() < next_))
            return;
        next_ = timer_.elapsed() + 100;
        const double seconds = std::max(1e-3, double(timer_.elapsed()) / 1000);
        const double rate = done / seconds;
        const int left = rate > 0 ? int((total_ - done) / rate + 0.5) : 0;
        char text[96];
        const int textWidth = std::snprintf(text, sizeof text, " %d/%d lines  %.0f lines/s  %d:%02d left", done, total_, rate,
                                            left / 60, left % 60);
        // The bar takes what the text leaves of the line, at most 40 characters.
        const int bar = std::clamp(columns() - textWidth - 4, 0, 40);
        const int filled = int(qint64(done) * bar / std::max(1, total_));
        std::fprintf(stderr, "\r%s%s%s%s%s", bar ? " [" : "", std::string(size_t(filled), '#').c_str(),
                     std::string(size_t(bar - filled), '-').c_str(), bar ? "]" : "", text);
        std::fflush(stderr);
    }

private:
    static int columns()
    {
        winsize size{};
        return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
    }

    int total_;
    bool shown_;
    QElapsedTimer timer_;
    qint64 next_ = 0;
};

} // namespace cli
