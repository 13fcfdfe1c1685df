#pragma once

#include <QByteArray>
#include <QString>

#include <array>
#include <charconv>

/// The two text forms in which metrics are asked for.
enum class MetricsForm {
    Prometheus, ///< the text format 0.0.4 of Prometheus
    OpenMetrics ///< OpenMetrics 1.0.0
};

/// One form on its way: families with their lines.
class MetricsWriter
{
public:
    explicit MetricsWriter(MetricsForm form) : m_form(form) { }

    /// `NAME="VALUE"`, with what has a meaning there escaped.
    static QByteArray label(const char *name, const QString &value);
    /// Digits alone, whatever the locale; the shortest text that reads back as the same number.
    template <class Number>
    static QByteArray shortest(Number number)
    {
        std::array<char, 32> text;
        const auto end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
        return QByteArray(text.data(), static_cast<int>(end - text.data()));
    }

    /// The head of a family. Types that Prometheus does not know are gauges there, and suffixes, which belong
    /// to the family there, are no part of its name in OpenMetrics.
    void family(const QByteArray &name, const char *suffix, const char *type, const char *help);
    void line(const QByteArray &labels, const QByteArray &value);
    /// All of it; nothing can be added then.
    QByteArray finish();

private:
    MetricsForm m_form;
    QByteArray m_name;
    QByteArray m_text;
};
