#include "metrics/MetricsWriter.h"

#include <utility>

namespace {

QByteArray escaped(const QString &text)
{
    QByteArray bytes = text.toUtf8();
    bytes.replace('\\', "\\\\").replace('"', "\\\"").replace('\n', "\\n");
    return bytes;
}

} // namespace

QByteArray MetricsWriter::label(const char *name, const QString &value)
{
    return name + QByteArray("=\"") + escaped(value) + '"';
}

void MetricsWriter::family(const QByteArray &name, const char *suffix, const char *type,
                           const char *help)
{
    const bool isOpen = m_form == MetricsForm::OpenMetrics;
    const bool isKnown = isOpen || qstrcmp(type, "counter") == 0;
    const QByteArray head = isOpen ? name : name + suffix;
    m_name = name + suffix;
    m_text += "# HELP " + head + ' ' + help + '\n';
    m_text += "# TYPE " + head + ' ' + (isKnown ? type : "gauge") + '\n';
}

void MetricsWriter::line(const QByteArray &labels, const QByteArray &value)
{
    m_text += m_name;
    m_text += '{';
    m_text += labels;
    m_text += "} ";
    m_text += value;
    m_text += '\n';
}

QByteArray MetricsWriter::finish()
{
    if (m_form == MetricsForm::OpenMetrics) {
        m_text += "# EOF\n";
    }
    return std::move(m_text);
}
