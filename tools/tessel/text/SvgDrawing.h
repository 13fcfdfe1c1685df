#pragma once

#include <QByteArray>
#include <QPair>
#include <QString>
#include <QVector>
#include <QXmlStreamWriter>

/// A picture in SVG, element by element. Lengths are pixels, y counts downwards.
///
/// Texts may hold anything: control characters become visible escapes, and what XML has no character for is
/// replaced.
class SvgDrawing
{
public:
    using Attributes = QVector<QPair<const char *, QString>>;

    struct Box
    {
        double x;
        double y;
        double width;
        double height;
    };

    /// An empty panel of its own, so that the picture reads on a light and on a dark page.
    SvgDrawing(int width, int height, const QString &title);

    SvgDrawing(const SvgDrawing &) = delete;
    SvgDrawing &operator=(const SvgDrawing &) = delete;

    /// @p title is what is shown where a pointer stands above it; none if it is empty.
    void rectangle(const Box &box, const QString &fill, const QString &title,
                   const Attributes &more = {});
    void text(double x, double y, const QString &text, int size, const QString &colour,
              const Attributes &more = {});
    void verticalLine(double x, double fromY, double toY, const Attributes &more);
    /// @p data is that of a path element, such as `M0 0 L10 5`.
    void path(const QString &data, const Attributes &more);
    /// A pattern to fill with, as `url(#id)`.
    void stripes(const QString &id, const QString &colour);

    /// Ends the picture and gives it.
    QByteArray finish();

private:
    void attributes(const Attributes &list);

    QByteArray m_text;
    QXmlStreamWriter m_xml;
};
