#include "text/CsvText.h"

#include "text/Failure.h"

#include <QFile>
#include <QFileInfo>
#include <QTextCodec>

namespace {

constexpr qint64 largestFile = qint64(64) * 1024 * 1024;

[[noreturn]] void refuse(ExitCode code, const QString &path, const QString &reason)
{
    throw Failure{code, QStringLiteral("%1: %2").arg(path, reason)};
}

[[noreturn]] void refuseFile(const QString &path, const QString &reason)
{
    refuse(ExitCode::InputOutputFile, path, reason);
}

QByteArray readBytes(const QString &path)
{
    const QFileInfo entry(path);
    if (!entry.exists()) {
        refuse(ExitCode::NotFound, path, QStringLiteral("no such file"));
    }
    if (entry.isDir()) {
        refuseFile(path, QStringLiteral("is a folder; name a CSV file"));
    }
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        refuse(entry.isReadable() ? ExitCode::InputOutputFile : ExitCode::NoAccess, path,
               QStringLiteral("cannot be read: %1").arg(file.errorString()));
    }
    QByteArray bytes = file.read(largestFile + 1);
    // A part of the rows would be taken for all of them.
    if (file.error() != QFileDevice::NoError) {
        refuseFile(path, QStringLiteral("cannot be read: %1").arg(file.errorString()));
    }
    if (bytes.size() > largestFile) {
        refuseFile(path, QStringLiteral("is larger than 64 MiB"));
    }
    return bytes;
}

QString decoded(const QString &path, const QByteArray &bytes)
{
    QTextCodec::ConverterState state;
    QString text = QTextCodec::codecForName("UTF-8")->toUnicode(bytes.constData(), bytes.size(),
                                                                &state);
    if (state.invalidChars > 0 || state.remainingChars > 0 || bytes.contains('\0')) {
        refuseFile(path, QStringLiteral("is no UTF-8 text"));
    }
    return text;
}

/// Takes the records of a text apart, character by character.
class CsvReader
{
public:
    CsvReader(const QString &path, const QString &text) : m_path(path), m_text(text) { }

    QVector<CsvRecord> records()
    {
        QVector<CsvRecord> records;
        while (m_position < m_text.size()) {
            records.append(record());
        }
        return records;
    }

private:
    CsvRecord record()
    {
        CsvRecord record{m_line, {cell()}};
        while (takeIf(QLatin1Char(','))) {
            record.cells.append(cell());
        }
        // The last record may do without its line end.
        if (m_position < m_text.size()) {
            takeIf(QLatin1Char('\r'));
            takeIf(QLatin1Char('\n'));
            ++m_line;
        }
        return record;
    }

    QString cell()
    {
        if (takeIf(QLatin1Char('"'))) {
            return quotedCell();
        }
        const int begin = m_position;
        while (!isAtEndOfCell()) {
            if (m_text[m_position] == QLatin1Char('"')) {
                refuse("a quote inside a cell that does not begin with one");
            }
            ++m_position;
        }
        return m_text.mid(begin, m_position - begin);
    }

    QString quotedCell()
    {
        const int begin = m_line;
        QString cell;
        while (m_position < m_text.size()) {
            const QChar character = m_text[m_position++];
            if (character == QLatin1Char('"') && !takeIf(QLatin1Char('"'))) {
                if (!isAtEndOfCell()) {
                    refuse("text behind the closing quote of a cell");
                }
                return cell;
            }
            m_line += character == QLatin1Char('\n') ? 1 : 0;
            cell += character;
        }
        m_line = begin;
        refuse("a quote that is never closed");
    }

    bool isAtEndOfCell() const
    {
        const QStringRef rest = m_text.midRef(m_position, 2);
        return rest.isEmpty() || rest.startsWith(QLatin1Char(','))
               || rest.startsWith(QLatin1Char('\n')) || rest == QLatin1String("\r\n");
    }

    bool takeIf(QChar character)
    {
        if (m_position >= m_text.size() || m_text[m_position] != character) {
            return false;
        }
        ++m_position;
        return true;
    }

    [[noreturn]] void refuse(const char *reason) const
    {
        refuseFile(m_path, QStringLiteral("line %1: %2").arg(m_line).arg(QLatin1String(reason)));
    }

    const QString &m_path;
    const QString &m_text;
    int m_position = 0;
    int m_line = 1;
};

QString quoted(QString cell)
{
    const bool isPlain = !cell.contains(QLatin1Char(',')) && !cell.contains(QLatin1Char('"'))
                         && !cell.contains(QLatin1Char('\n')) && !cell.contains(QLatin1Char('\r'));
    if (isPlain) {
        return cell;
    }
    return QLatin1Char('"') + cell.replace(QLatin1Char('"'), QLatin1String("\"\""))
           + QLatin1Char('"');
}

} // namespace

QString csvLine(const QStringList &cells)
{
    // Without the quotes a single empty cell would be no record at all for many readers.
    if (cells.size() == 1 && cells.constFirst().isEmpty()) {
        return QStringLiteral("\"\"\n");
    }
    QStringList texts;
    for (const auto &cell : cells) {
        texts.append(quoted(cell));
    }
    return texts.join(QLatin1Char(',')) + QLatin1Char('\n');
}

QVector<CsvRecord> readCsv(const QString &path)
{
    const QString text = decoded(path, readBytes(path));
    return CsvReader(path, text).records();
}
