#pragma once

#include "completion/SseLineSplitter.h"

#include <QByteArrayView>
#include <QString>

/// What one line of a chat-completion event stream means.
struct SseEvent {
    enum class Kind {
        Skip,     ///< not a data line, or its payload holds no text fragment
        Fragment, ///< a text fragment, possibly empty
        Done,     ///< the end marker
    };

    Kind kind = Kind::Skip;
    QString fragment;

    /// Reads a line (without its terminator): "data: " followed by "[DONE]" or by a JSON
    /// object whose choices[0].delta.content is a string.
    static SseEvent decode(QByteArrayView line);
};

/// Reads a status-200 event stream piece by piece into fragments, up to the end marker.
class SseEventReader {
public:
    /// The longest line read. One event carries one piece of an answer, rarely more than a
    /// few hundred bytes; even a whole long answer in a single event, JSON-escaped, stays far
    /// below this. A line past it can only come from a broken or hostile server, and keeping
    /// it would let that server fill the memory.
    static constexpr qsizetype maxLineLength = 16 * 1024 * 1024;

    /// Calls `onFragment(const QString&)` for each fragment completed by `bytes`, in order.
    /// Returns false once the end marker has been read; later bytes are ignored.
    template<typename OnFragment> bool feed(QByteArrayView bytes, OnFragment&& onFragment)
    {
        if (m_done) {
            return false;
        }
        return m_splitter.feed(bytes,
                               [&](QByteArrayView line) { return handleLine(line, onFragment); });
    }

    /// The end of the body: an unfinished last line still counts.
    template<typename OnFragment> void finish(OnFragment&& onFragment)
    {
        if (!m_done) {
            m_splitter.finish([&](QByteArrayView line) { return handleLine(line, onFragment); });
        }
    }

    bool isDone() const { return m_done; }
    /// A line over `maxLineLength` was refused; nothing after it is read.
    bool lineTooLong() const { return m_splitter.lineTooLong(); }

private:
    template<typename OnFragment> bool handleLine(QByteArrayView line, OnFragment& onFragment)
    {
        SseEvent event = SseEvent::decode(line);
        if (event.kind == SseEvent::Kind::Done) {
            m_done = true;
            return false;
        }
        if (event.kind == SseEvent::Kind::Fragment) {
            onFragment(event.fragment);
        }
        return true;
    }

    SseLineSplitter m_splitter{maxLineLength};
    bool m_done = false;
};
