#include "Companion/FormatVersions.h"
#include "Validation/DocumentRules_p.h"
#include "Validation/KeyRules_p.h"
#include "Validation/ValueShown_p.h"

#include <limits>
#include <optional>

namespace {

using Key = DescribedKey;
using Kind = JsonText::Kind;
using Value = JsonText::Value;

/// The value under one key, and where a problem with it goes.
struct Entry
{
    CheckedFile &file;
    const QString &url;
    Key key;
    Value value;
    /// Whether what is below it has been looked through, as a part of something else.
    bool isLookedThrough;

    void report(Rule rule, const QString &text) const { file.report(rule, value, url, text); }
    QString name() const { return QLatin1Char('\'') + textOf(key) + QLatin1Char('\''); }
    bool isScalar() const
    {
        return value.kind() != Kind::Null && !value.isArray() && !value.isObject();
    }
    bool isNumber() const { return value.kind() == Kind::Integer || value.kind() == Kind::Double; }

    void expect(Rule rule, const char *wanted) const
    {
        report(rule, QStringLiteral("%1 is %2, and should be %3")
                         .arg(name(), shown(file, value), QLatin1String(wanted)));
    }
    void expect(bool isRead, const char *wanted) const
    {
        expect(isRead ? Rule::UnexpectedType : Rule::WrongType, wanted);
    }
};

void checkText(const Entry &entry)
{
    if (!entry.value.isText()) {
        entry.expect(entry.isScalar() && entry.key != Key::Type, "a text");
    }
}

/// Applications read it; a folder's is read here, as a text.
void checkFreeText(const Entry &entry)
{
    if (!entry.value.isText()) {
        entry.expect(entry.isScalar() || entry.file.kind() != CheckedFile::Kind::Folder, "a text");
    }
}

void checkFlag(const Entry &entry)
{
    if (entry.value.kind() == Kind::Bool) {
        return;
    }
    bool isRead = entry.isNumber();
    if (entry.value.isText()) {
        const QString text = entry.value.toString().toLower();
        // Every other text is read as true.
        isRead = text == QLatin1String("true") || text == QLatin1String("false")
                 || text == QLatin1String("1") || text == QLatin1String("0");
    }
    entry.expect(isRead, "true or false");
}

/// A whole number from @p least to @p most, which @p read makes of what is written.
template <class Read>
void checkWhole(const Entry &entry, qint64 least, qint64 most, const Read &read)
{
    const Value &value = entry.value;
    if (value.kind() == Kind::Integer && value.toInteger() >= least && value.toInteger() <= most) {
        return;
    }
    bool isRead = false;
    const QString text = read(value.toVariant(), isRead);
    if (entry.isNumber()) {
        entry.report(Rule::NumberMisread, QStringLiteral("%1 of %2 is read as %3")
                                              .arg(shown(entry.file, value), entry.name(), text));
        return;
    }
    entry.expect(isRead && entry.isScalar(), "a whole number");
}

void checkVersion(const Entry &entry)
{
    const Value &value = entry.value;
    const bool isRead = value.kind() == Kind::Integer
                        && value.toInteger() >= std::numeric_limits<int>::min()
                        && value.toInteger() <= std::numeric_limits<int>::max();
    if (!isRead) {
        entry.expect(Rule::UnexpectedType, "a whole number");
    } else if (value.toInteger() != FormatVersions::description) {
        entry.report(Rule::SchemeVersion, QStringLiteral("version %1 is read as version %2")
                                              .arg(value.toInteger())
                                              .arg(FormatVersions::description));
    }
}

void checkCount(const Entry &entry)
{
    checkWhole(
        entry, 0, std::numeric_limits<quint32>::max(),
        [](const QVariant &value, bool &isRead) { return QString::number(value.toUInt(&isRead)); });
}

void checkPosition(const Entry &entry)
{
    checkWhole(
        entry, std::numeric_limits<int>::min(), std::numeric_limits<int>::max(),
        [](const QVariant &value, bool &isRead) { return QString::number(value.toInt(&isRead)); });
}

void checkForm(const Entry &entry)
{
    switch (rowOf(entry.key).form) {
    case KeyForm::Text: checkText(entry); return;
    case KeyForm::FreeText: checkFreeText(entry); return;
    case KeyForm::Flag: checkFlag(entry); return;
    case KeyForm::Count: checkCount(entry); return;
    case KeyForm::Position: checkPosition(entry); return;
    case KeyForm::Version: checkVersion(entry); return;
    case KeyForm::FreeNumber:
        if (!entry.isNumber()) {
            entry.expect(Rule::UnexpectedType, "a number");
            return;
        }
        break;
    case KeyForm::FreeObject:
        if (!entry.value.isObject()) {
            entry.expect(Rule::UnexpectedType, "an object");
            return;
        }
        break;
    case KeyForm::Any:
        if (entry.isNumber()) {
            return; // What it is read as depends on the type of the leaf.
        }
        break;
    }
    if (!entry.isLookedThrough) {
        DocumentRules::checkPlain(entry.file, entry.value, entry.url);
    }
}

/// The key of a member where it may not stand. Nothing if it may.
std::optional<Rule> refusal(const std::optional<Key> &key, unsigned places)
{
    if (!key) {
        return Rule::UnknownKey;
    }
    return (rowOf(*key).places & places) == 0 ? std::make_optional(Rule::MisplacedKey)
                                              : std::nullopt;
}

/// Where a known key means nothing, though it may mean something elsewhere.
QString placeInWords(const CheckedFile &file, Key key, unsigned places)
{
    const unsigned top = KeyPlace::Top | (file.isProcess() ? KeyPlace::ProcessTop : 0U);
    const bool isBelow = (places & (KeyPlace::Top | KeyPlace::Folder)) == 0;
    return isBelow && (rowOf(key).places & top) != 0 ? QStringLiteral("below the top level")
                                                     : QStringLiteral("here");
}

/// Every key that is written, known or not.
void checkMember(CheckedFile &file, const QString &url, unsigned places,
                 const JsonText::WrittenMembers &member)
{
    const bool isColumn = places == KeyPlace::Column;
    const auto key = describedKey(member.key());
    if (const auto rule = refusal(key, places)) {
        const QString text = member.key().toString();
        file.report(*rule, member.key(), url,
                    *rule == Rule::UnknownKey
                        ? QStringLiteral("unknown key %1%2")
                              .arg(quoted(text), hintOf(text, describedKeysIn(places)))
                        : QStringLiteral("'%1' means nothing %2")
                              .arg(text, placeInWords(file, *key, places)));
        if (!isColumn) {
            DocumentRules::checkPlain(file, member.value(), url);
        }
        return;
    }
    // The children are elements of their own.
    if (*key != Key::Value || (places & KeyPlace::Node) == 0) {
        checkForm({file, url, *key, member.value(), isColumn});
    }
}

void checkMembers(CheckedFile &file, const Value &object, const QString &url, unsigned places)
{
    for (JsonText::WrittenMembers member(object); member.isValid(); member.next()) {
        checkMember(file, url, places, member);
    }
}

} // namespace

void KeyRules::check(const CheckedElement &element)
{
    DocumentRules::checkKeys(element.file(), element.object(), element.url());
    checkMembers(element.file(), element.object(), element.url(), element.places());
}

void KeyRules::checkColumn(CheckedFile &file, const Value &column, const QString &url)
{
    checkMembers(file, column, url, KeyPlace::Column);
}
