#pragma once

// What the panel benchmarks share: an answer as a model streams it, CPU clocks, and the ROW
// lines that scripts/bench gathers into its table.
#include <QList>
#include <QString>
#include <QStringList>

#include <cstdio>
#include <ctime>
#include <sys/resource.h>

namespace bench {

constexpr int fragmentSize = 6;
constexpr int fragmentsPerParagraph = 60;

inline qint64 threadCpuNs()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return qint64(now.tv_sec) * 1000000000 + now.tv_nsec;
}

/// CPU time of the whole process, every thread (the render thread, llvmpipe's) included.
inline qint64 processCpuNs()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return (qint64(usage.ru_utime.tv_sec) + usage.ru_stime.tv_sec) * 1000000000 +
           (qint64(usage.ru_utime.tv_usec) + usage.ru_stime.tv_usec) * 1000;
}

inline bool quick()
{
    return qEnvironmentVariableIntValue("RAVELO_BENCH_QUICK") == 1;
}

/// The answer as a model streams it: sentences in fragments of `size` characters, a new
/// paragraph every 60 fragments unless `oneParagraph`.
class Answer {
public:
    explicit Answer(bool oneParagraph, int size = fragmentSize)
        : m_oneParagraph(oneParagraph)
        , m_size(size)
    {}

    QString next()
    {
        static const QString sentence = QStringLiteral(
            "A streamed answer arrives a few characters at a time and grows paragraph by "
            "paragraph. ");
        QString fragment;
        while (fragment.size() < m_size) {
            fragment += sentence.mid(m_offset, m_size - fragment.size());
            m_offset = (m_offset + fragment.size()) % sentence.size();
        }
        if (++m_count % fragmentsPerParagraph == 0 && !m_oneParagraph) {
            fragment += u'\n';
        }
        return fragment;
    }

    QString text(qsizetype length)
    {
        QString text;
        text.reserve(length + 2 * m_size);
        while (text.size() < length) {
            text += next();
        }
        return text;
    }

private:
    bool m_oneParagraph;
    int m_size;
    int m_count = 0;
    qsizetype m_offset = 0;
};

inline QString joined(const QList<double>& values)
{
    if (values.isEmpty()) {
        return QStringLiteral("-");
    }
    QStringList parts;
    for (const double value : values) {
        parts << QString::number(value, 'f', 1);
    }
    return parts.join(u',');
}

/// One row of the table: this build's samples beside a baseline's, measured in the same run.
inline void row(const QString& measure, const QString& unit, const QList<double>& samples,
                const QString& baseline, const QList<double>& baselineSamples, const QString& goal)
{
    std::printf("ROW\t%s\t%s\t%s\t%s\t%s\t%s\n", qPrintable(measure), qPrintable(unit),
                qPrintable(joined(samples)),
                qPrintable(baseline.isEmpty() ? QStringLiteral("-") : baseline),
                qPrintable(joined(baselineSamples)), qPrintable(goal));
    std::fflush(stdout);
}

} // namespace bench
