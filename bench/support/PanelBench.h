#pragma once

// What the panel benchmarks share: the X screen they watch, a ravelo (or a bare Qt Quick
// window standing in for it) started with fresh preferences and triggered through its
// instance socket, and the ROW lines they print.
#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <optional>
#include <utility>
#include <vector>

#include <xcb/xcb.h>

namespace bench {

/// Samples to take: fewer with RAVELO_BENCH_QUICK=1.
int sampleCount(int normal, int quick);

/// The X screen the benchmark runs on; starts openbox when no window manager runs there, and
/// xcompmgr with RAVELO_BENCH_COMPOSITOR=1 (the panel then has its shadow margin).
class Desktop {
public:
    Desktop();
    ~Desktop();
    Desktop(const Desktop&) = delete;
    Desktop& operator=(const Desktop&) = delete;

    /// The first and last row of the screen's middle column where the card's background
    /// shows, if it shows.
    std::optional<std::pair<int, int>> cardRows() const;
    /// Presses and releases Esc (XTest).
    void pressEscape() const;

private:
    xcb_connection_t* m_connection = nullptr;
    const xcb_screen_t* m_screen = nullptr;
    QProcess m_windowManager;
    QProcess m_compositor;
};

/// How a trigger showed the card: when its first frame was on the screen and when the card
/// last changed its extent, both in milliseconds after the trigger (-1: never showed).
struct Appearance {
    double firstFrameMs = -1;
    double settledMs = -1;
};

/// A process with preferences and runtime directory of its own that answers the instance
/// socket's "trigger" and "quit" lines: ravelo itself, or this benchmark's bare window.
class Instance {
public:
    /// `program` empty: the bare Qt Quick window of this executable (see runBareWindow).
    explicit Instance(const QString& program);
    ~Instance();
    Instance(const Instance&) = delete;
    Instance& operator=(const Instance&) = delete;

    /// Starts the process and waits until its socket answers and it has had time to settle.
    bool start();
    /// Sends "trigger" and times the card showing.
    Appearance trigger(const Desktop& desktop);
    /// Closes the panel with Esc and waits until the card is gone.
    void close(const Desktop& desktop);
    /// Resident memory in MB.
    double residentMb() const;
    void quit();

private:
    bool send(QByteArrayView line);

    QString m_program;
    QTemporaryDir m_home;
    QProcess m_process;
};

/// The bench executables' second mode, `--bare-window`: a Qt Quick window as plain as it
/// gets, made and shown at the first trigger, drawn by the renderer ravelo would use.
int runBareWindow(int argc, char** argv);
bool isBareWindowMode(int argc, char** argv);

/// Where ravelo is: RAVELO_BINARY, else next to the bench directory.
QString raveloProgram();

/// The name the renderer under test goes by in the row names.
QString rendererName();

/// Prints one ROW line (see scripts/bench).
void printRow(const QString& measure, const QString& unit, const std::vector<double>& samples,
              const QString& baseline, const std::vector<double>& baselineSamples,
              const QString& goal);

/// The text both processes find on the clipboard: a paragraph of a few lines.
void putTextOnClipboard();

} // namespace bench
