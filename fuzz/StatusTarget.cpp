#include "FuzzTarget.h"
#include "InputFile.h"
#include "metrics/MirrorMetrics.h"

#include <QRegularExpression>
#include <QSet>

#include <sanitizer/lsan_interface.h>

// Whatever a status file of a mirror says, the metrics made of it are lines of their form, and none stands there
// twice: one that is not makes Prometheus throw all of them away.
//
// An input is the file.

namespace {

void checkForm(const QByteArray &text)
{
    static const QRegularExpression line(
        QStringLiteral(R"(^tessel_mirror_\w+\{\w+="([^"\\]|\\[\\"n])*")"
                       R"((,\w+="([^"\\]|\\[\\"n])*")*\} -?\d+(\.\d+)?(e[+-]\d+)?$)"),
        QRegularExpression::DotMatchesEverythingOption);
    require(text.endsWith('\n'), "every line has its end");
    QSet<QByteArray> metrics;
    const QByteArrayList lines = text.chopped(1).split('\n');
    for (const auto &one : lines) {
        if (one.startsWith("# ")) {
            continue;
        }
        // With its size: a name may have a zero character.
        const QString told = QString::fromUtf8(one.constData(), one.size());
        require(line.match(told).hasMatch(), "a line is one of a metric");
        const QByteArray metric = one.left(one.lastIndexOf(' '));
        require(!metrics.contains(metric), "a metric stands there once");
        metrics.insert(metric);
    }
}

} // namespace

void runInput(const QByteArray &input)
{
    // The parser of the toolkit forgets memory where a key stands twice.
    const __lsan::ScopedDisabler noLeaks;
    const InputFile file(input);
    for (const auto form : {MetricsForm::Prometheus, MetricsForm::OpenMetrics}) {
        MetricsWriter writer(form);
        writeMirrors(writer, {file.path()});
        checkForm(writer.finish());
    }
}
