#pragma once
// A progress bar with the frame rate on standard error, drawn at most ten times a
// second, and only when standard error is a terminal: piped or logged runs stay quiet.

#include <QElapsedTimer>
#include <algorithm>
#include <cstdio>
#include <string>
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

    void update(int done, double framesPerSecond)
    {
        if (!shown_ || (done < total_ && timer_.elapsed() < next_))
            return;
        next_ = timer_.elapsed() + 100;
        constexpr int Width = 30;
        const int filled = int(qint64(done) * Width / std::max(1, total_));
        std::fprintf(stderr, "\r  [%s%s] %d/%d lines  %.0f frames/s ", std::string(size_t(filled), '#').c_str(),
                     std::string(size_t(Width - filled), '-').c_str(), done, total_, framesPerSecond);
        std::fflush(stderr);
    }

private:
    int total_;
    bool shown_;
    QElapsedTimer timer_;
    qint64 next_ = 0;
};

} // namespace cli
