#include "text/SvgDrawing.h"

#include "text/Output.h"

namespace {

/// Whether one of the two halves of a character stands at a place without the other one.
bool isHalf(const QString &text, int place)
{
    const QChar character = text.at(place);
    const bool hasLow = place + 1 < text.size() && text.at(place + 1).isLowSurrogate();
    const bool hasHigh = place > 0 && text.at(place - 1).isHighSurrogate();
    return (character.isHighSurrogate() && !hasLow) || (character.isLowSurrogate() && !hasHigh);
}

/// Without what no XML can hold.
QString writable(const QString &text)
{
    const QString given = printable(text);
    QString result = given;
    for (int i = 0; i < given.size(); ++i) {
        const ushort code = given.at(i).unicode();
        if (code == 0xfffe || code == 0xffff || isHalf(given, i)) {
            result[i] = QChar::ReplacementCharacter;
        }
    }
    return result;
}

} // namespace

SvgDrawing::SvgDrawing(int width, int height, const QString &title) : m_xml(&m_text)
{
    m_xml.setAutoFormatting(true);
    m_xml.setAutoFormattingIndent(1);
    m_xml.writeStartDocument();
    m_xml.writeStartElement(QStringLiteral("svg"));
    m_xml.writeDefaultNamespace(QStringLiteral("http://www.w3.org/2000/svg"));
    attributes({{"viewBox", QStringLiteral("0 0 %1 %2").arg(width).arg(height)},
                {"width", QString::number(width)},
                {"height", QString::number(height)},
                {"font-family", QStringLiteral("Helvetica, Arial, sans-serif")},
                {"role", QStringLiteral("img")}});
    m_xml.writeTextElement(QStringLiteral("title"), writable(title));
    rectangle({0, 0, double(width), double(height)}, QStringLiteral("#fbfcfd"), {});
}

void SvgDrawing::rectangle(const Box &box, const QString &fill, const QString &title,
                           const Attributes &more)
{
    m_xml.writeStartElement(QStringLiteral("rect"));
    attributes({{"x", QString::number(box.x)},
                {"y", QString::number(box.y)},
                {"width", QString::number(box.width)},
                {"height", QString::number(box.height)},
                {"fill", fill}});
    attributes(more);
    if (!title.isEmpty()) {
        m_xml.writeTextElement(QStringLiteral("title"), writable(title));
    }
    m_xml.writeEndElement();
}

void SvgDrawing::text(double x, double y, const QString &text, int size, const QString &colour,
                      const Attributes &more)
{
    m_xml.writeStartElement(QStringLiteral("text"));
    attributes({{"x", QString::number(x)},
                {"y", QString::number(y)},
                {"font-size", QString::number(size)},
                {"fill", colour}});
    attributes(more);
    m_xml.writeCharacters(writable(text));
    m_xml.writeEndElement();
}

void SvgDrawing::verticalLine(double x, double fromY, double toY, const Attributes &more)
{
    m_xml.writeStartElement(QStringLiteral("line"));
    attributes({{"x1", QString::number(x)},
                {"y1", QString::number(fromY)},
                {"x2", QString::number(x)},
                {"y2", QString::number(toY)}});
    attributes(more);
    m_xml.writeEndElement();
}

void SvgDrawing::path(const QString &data, const Attributes &more)
{
    m_xml.writeStartElement(QStringLiteral("path"));
    attributes({{"d", data}});
    attributes(more);
    m_xml.writeEndElement();
}

void SvgDrawing::stripes(const QString &id, const QString &colour)
{
    m_xml.writeStartElement(QStringLiteral("pattern"));
    attributes({{"id", id},
                {"width", QStringLiteral("6")},
                {"height", QStringLiteral("6")},
                {"patternUnits", QStringLiteral("userSpaceOnUse")},
                {"patternTransform", QStringLiteral("rotate(45)")}});
    rectangle({0, 0, 6, 6}, QStringLiteral("#ffffff"), {});
    rectangle({0, 0, 3, 6}, colour, {});
    m_xml.writeEndElement();
}

QByteArray SvgDrawing::finish()
{
    m_xml.writeEndDocument();
    return m_text;
}

void SvgDrawing::attributes(const Attributes &list)
{
    for (const auto &attribute : list) {
        m_xml.writeAttribute(QLatin1String(attribute.first), attribute.second);
    }
}
