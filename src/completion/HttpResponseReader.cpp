#include "completion/HttpResponseReader.h"

#include <QByteArrayList>

namespace {

QByteArray trimmedLower(QByteArrayView value)
{
    return value.trimmed().toByteArray().toLower();
}

/// A chunk size: hexadecimal digits only (at most 15, so it fits), nothing else.
qint64 chunkSize(QByteArrayView line)
{
    const qsizetype extension = line.indexOf(';');
    const QByteArrayView digits = (extension < 0 ? line : line.first(extension)).trimmed();
    if (digits.isEmpty() || digits.size() > 15) {
        return -1;
    }
    qint64 size = 0;
    for (char c : digits) {
        int digit = 0;
        if (c >= '0' && c <= '9') {
            digit = c - '0';
        } else if (c >= 'a' && c <= 'f') {
            digit = c - 'a' + 10;
        } else if (c >= 'A' && c <= 'F') {
            digit = c - 'A' + 10;
        } else {
            return -1;
        }
        size = size * 16 + digit;
    }
    return size;
}

} // namespace

QByteArray HttpResponseReader::header(QByteArrayView name) const
{
    for (const auto& [key, value] : m_headers) {
        if (QByteArrayView(key).compare(name, Qt::CaseInsensitive) == 0) {
            return value;
        }
    }
    return {};
}

void HttpResponseReader::fail(Failure failure)
{
    m_state = State::Failed;
    m_failure = failure;
    m_pending.clear();
}

HttpResponseReader::State
HttpResponseReader::feed(QByteArrayView bytes, const std::function<void(QByteArrayView)>& onBody)
{
    qsizetype at = 0;
    while (at < bytes.size() && (m_state == State::Head || m_state == State::Body)) {
        const QByteArrayView rest = bytes.sliced(at);
        if (m_state == State::Head) {
            at += readHead(rest);
            continue;
        }
        switch (m_framing) {
        case Framing::Length: {
            const qsizetype size =
                static_cast<qsizetype>(qMin<qint64>(rest.size(), m_contentLength - m_bodyBytes));
            m_bodyBytes += size;
            at += size;
            onBody(rest.first(size));
            if (m_bodyBytes == m_contentLength) {
                m_state = State::Complete;
            }
            break;
        }
        case Framing::UntilClose:
            m_bodyBytes += rest.size();
            at = bytes.size();
            onBody(rest);
            break;
        case Framing::Chunked:
            at += readChunked(rest, onBody);
            break;
        case Framing::None:
            m_state = State::Complete;
            break;
        }
    }
    return m_state;
}

HttpResponseReader::State HttpResponseReader::connectionClosed()
{
    if (m_state == State::Body && m_framing == Framing::UntilClose) {
        m_state = State::Complete;
    } else if (m_state == State::Head || m_state == State::Body) {
        fail(Failure::CutShort);
    }
    return m_state;
}

qsizetype HttpResponseReader::readHead(QByteArrayView bytes)
{
    const qsizetype before = m_pending.size();
    const qsizetype take = qMin(bytes.size(), maxHeadSize + 4 - before);
    m_pending.append(bytes.first(take));

    const QByteArrayView prefix("HTTP/");
    if (!m_pending.startsWith(prefix.first(qMin(prefix.size(), m_pending.size())))) {
        fail(Failure::NotHttp);
        return bytes.size();
    }
    const qsizetype from = qMax<qsizetype>(0, before - 3);
    const qsizetype crlf = m_pending.indexOf("\r\n\r\n", from);
    const qsizetype lf = m_pending.indexOf("\n\n", from);
    qsizetype end = -1;
    if (crlf >= 0 && (lf < 0 || crlf + 2 <= lf)) {
        end = crlf + 4;
    } else if (lf >= 0) {
        end = lf + 2;
    }
    if (end < 0) {
        if (m_pending.size() >= maxHeadSize + 4) {
            fail(Failure::HeadTooLong);
            return bytes.size();
        }
        return take;
    }
    const QByteArray head = std::exchange(m_pending, QByteArray()).first(end);
    if (!parseHead(head)) {
        return bytes.size();
    }
    return end - before;
}

bool HttpResponseReader::parseHead(QByteArrayView head)
{
    QByteArrayList lines = head.toByteArray().split('\n');
    for (QByteArray& line : lines) {
        if (line.endsWith('\r')) {
            line.chop(1);
        }
    }
    const QByteArray& statusLine = lines.first();
    const qsizetype blank = statusLine.indexOf(' ');
    const QByteArray code = blank < 0 ? QByteArray() : statusLine.mid(blank + 1, 3);
    const bool isCode = code.size() == 3 && std::all_of(code.cbegin(), code.cend(), [](char c) {
                            return c >= '0' && c <= '9';
                        });
    if (!isCode || (statusLine.size() > blank + 4 && statusLine.at(blank + 4) != ' ')) {
        fail(Failure::NotHttp);
        return false;
    }
    m_status = code.toInt();
    m_headers.clear();
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines.at(i).indexOf(':');
        if (colon > 0) {
            m_headers.append(
                {lines.at(i).first(colon).trimmed(), lines.at(i).mid(colon + 1).trimmed()});
        }
    }

    // Interim answers (100 Continue, 103 Early Hints) come before the real one.
    if (m_status >= 100 && m_status < 200 && m_status != 101) {
        m_headers.clear();
        return true;
    }

    const QByteArray transferEncoding = trimmedLower(header("Transfer-Encoding"));
    const QByteArray length = header("Content-Length");
    if (m_status == 204 || m_status == 304) {
        m_framing = Framing::None;
    } else if (!transferEncoding.isEmpty()) {
        m_framing = transferEncoding.split(',').last().trimmed() == "chunked" ? Framing::Chunked
                                                                              : Framing::UntilClose;
    } else if (!length.isNull()) {
        // Repeated values must agree: "12, 12" is 12, "12, 13" is no length at all.
        for (const QByteArray& value : length.split(',')) {
            const QByteArray digits = value.trimmed();
            bool ok = !digits.isEmpty() && digits.size() <= 18 &&
                      std::all_of(digits.cbegin(), digits.cend(),
                                  [](char c) { return c >= '0' && c <= '9'; });
            const qint64 parsed = ok ? digits.toLongLong(&ok) : -1;
            if (!ok || (m_contentLength >= 0 && parsed != m_contentLength)) {
                fail(Failure::BadLength);
                return false;
            }
            m_contentLength = parsed;
        }
        m_framing = Framing::Length;
    } else {
        m_framing = Framing::UntilClose;
    }

    const QByteArray encoding = trimmedLower(header("Content-Encoding"));
    if (!encoding.isEmpty() && encoding != "identity" && m_framing != Framing::None &&
        m_contentLength != 0) {
        fail(Failure::CompressedBody);
        return false;
    }
    m_state = (m_framing == Framing::None || m_contentLength == 0) ? State::Complete : State::Body;
    return true;
}

qsizetype HttpResponseReader::readChunked(QByteArrayView bytes,
                                          const std::function<void(QByteArrayView)>& onBody)
{
    qsizetype at = 0;
    while (at < bytes.size() && m_state == State::Body) {
        switch (m_chunkStep) {
        case ChunkStep::Size:
        case ChunkStep::Trailer: {
            const qsizetype newline = bytes.indexOf('\n', at);
            const qsizetype end = newline < 0 ? bytes.size() : newline;
            m_pending.append(bytes.sliced(at, end - at));
            at = newline < 0 ? bytes.size() : newline + 1;
            if (m_pending.size() > maxChunkLineSize) {
                fail(Failure::BadChunk);
                break;
            }
            if (newline < 0) {
                break;
            }
            QByteArray line = std::exchange(m_pending, QByteArray());
            if (line.endsWith('\r')) {
                line.chop(1);
            }
            if (m_chunkStep == ChunkStep::Trailer) {
                if (line.isEmpty()) {
                    m_state = State::Complete;
                }
                break;
            }
            m_chunkLeft = chunkSize(line);
            if (m_chunkLeft < 0) {
                fail(Failure::BadChunk);
            } else {
                m_chunkStep = m_chunkLeft == 0 ? ChunkStep::Trailer : ChunkStep::Data;
            }
            break;
        }
        case ChunkStep::Data: {
            const qsizetype size =
                static_cast<qsizetype>(qMin<qint64>(bytes.size() - at, m_chunkLeft));
            m_chunkLeft -= size;
            m_bodyBytes += size;
            onBody(bytes.sliced(at, size));
            at += size;
            if (m_chunkLeft == 0) {
                m_chunkStep = ChunkStep::DataEnd;
            }
            break;
        }
        case ChunkStep::DataEnd: {
            // The chunk's data ends with CRLF (a lone LF is taken too).
            const char c = bytes.at(at++);
            if (c == '\r' && m_pending.isEmpty()) {
                m_pending = "\r";
            } else if (c == '\n') {
                m_pending.clear();
                m_chunkStep = ChunkStep::Size;
            } else {
                fail(Failure::BadChunk);
            }
            break;
        }
        }
    }
    return at;
}
