#pragma once

#include <QByteArray>
#include <QByteArrayView>

/// Splits a byte stream into lines as its pieces arrive. A line ends at LF, CR or CRLF,
/// also when the CR and the LF arrive in different pieces. Lines are handed out as bytes
/// without their terminator, so a multi-byte UTF-8 character split across two pieces is
/// whole again in its line. Only an unfinished line is kept between pieces.
class SseLineSplitter {
public:
    /// A line longer than `maxLineLength` bytes (when not negative) is refused: `feed` then
    /// stops, returns false and `lineTooLong()` tells why.
    explicit SseLineSplitter(qsizetype maxLineLength = -1)
        : m_maxLineLength(maxLineLength)
    {}

    bool lineTooLong() const { return m_lineTooLong; }

    /// Calls `onLine(QByteArrayView)` for each line completed by `bytes`. The view is
    /// valid during the call only. `onLine` returns false to stop; feed then returns false
    /// and drops the rest of `bytes`.
    template<typename OnLine> bool feed(QByteArrayView bytes, OnLine&& onLine)
    {
        if (m_lineTooLong) {
            return false;
        }
        const char* data = bytes.data();
        const qsizetype size = bytes.size();
        qsizetype start = 0;
        if (m_afterCr && size > 0) {
            m_afterCr = false;
            if (data[0] == '\n') {
                start = 1;
            }
        }
        for (qsizetype i = start; i < size; ++i) {
            const char c = data[i];
            if (c != '\n' && c != '\r') {
                continue;
            }
            if (exceedsLimit(i - start)) {
                return false;
            }
            bool keepGoing = true;
            if (m_partial.isEmpty()) {
                keepGoing = onLine(QByteArrayView(data + start, i - start));
            } else {
                m_partial.append(data + start, i - start);
                keepGoing = onLine(QByteArrayView(m_partial));
                m_partial.clear();
            }
            if (c == '\r') {
                if (i + 1 < size) {
                    if (data[i + 1] == '\n') {
                        ++i;
                    }
                } else {
                    m_afterCr = true;
                }
            }
            start = i + 1;
            if (!keepGoing) {
                return false;
            }
        }
        if (start < size) {
            if (exceedsLimit(size - start)) {
                return false;
            }
            m_partial.append(data + start, size - start);
        }
        return true;
    }

    /// The end of the stream: hands out an unfinished last line, if any.
    template<typename OnLine> void finish(OnLine&& onLine)
    {
        m_afterCr = false;
        if (!m_partial.isEmpty()) {
            const QByteArray last = std::exchange(m_partial, QByteArray());
            onLine(QByteArrayView(last));
        }
    }

private:
    bool exceedsLimit(qsizetype more)
    {
        if (m_maxLineLength >= 0 && m_partial.size() + more > m_maxLineLength) {
            m_lineTooLong = true;
            m_partial.clear();
        }
        return m_lineTooLong;
    }

    QByteArray m_partial;
    qsizetype m_maxLineLength = -1;
    bool m_afterCr = false;
    bool m_lineTooLong = false;
};
