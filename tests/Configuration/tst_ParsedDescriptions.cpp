#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ParsedDescriptions_p.h"

#include <QtTest>

using Tree = ParsedDescriptions::Tree;

namespace {

const QString postfix = QStringLiteral("process.json");

QByteArray text()
{
    return R"({"type":"treenode","value":{"a":{"type":"int32"}}})";
}

Tree parse(const QByteArray &text)
{
    return ConfigurationAndProcessDataParser().parseFromByteArray(text, postfix);
}

Tree treeOf(ParsedDescriptions &parsed, const QByteArray &text)
{
    return parsed.treeOf(text, postfix, [&text] { return parse(text); });
}

} // namespace

class tst_ParsedDescriptions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void aTreeThatWasPutBackComesAgainForTheSameText();
    void anotherTextOrPostfixGetsATreeOfItsOwn();
    void noTextIsKept();
    void aTextIsKeptForWhoAsksForIt();
};

void tst_ParsedDescriptions::aTreeThatWasPutBackComesAgainForTheSameText()
{
    ParsedDescriptions parsed;
    const Tree tree = treeOf(parsed, text());
    ParsedDescriptions::putBack(tree);

    QCOMPARE(treeOf(parsed, text()), tree);
    QVERIFY(treeOf(parsed, text()) != tree);
}

void tst_ParsedDescriptions::anotherTextOrPostfixGetsATreeOfItsOwn()
{
    ParsedDescriptions parsed;
    const Tree tree = treeOf(parsed, text());
    ParsedDescriptions::putBack(tree);

    QVERIFY(treeOf(parsed, text() + ' ') != tree);
    QVERIFY(treeOf(parsed, text().replace("\"a\"", "\"b\"")) != tree);
    QVERIFY(parsed.treeOf(text(), "config.json", [] { return parse(text()); }) != tree);
}

void tst_ParsedDescriptions::noTextIsKept()
{
    ParsedDescriptions parsed;
    const QByteArray own = text();
    const Tree tree = treeOf(parsed, own);
    QVERIFY(own.isDetached());
    ParsedDescriptions::putBack(tree);

    QVERIFY(own.isDetached());
    QVERIFY(!parsed.sourceOf(treeOf(parsed, own)));
}

void tst_ParsedDescriptions::aTextIsKeptForWhoAsksForIt()
{
    ParsedDescriptions parsed(ParsedDescriptions::Texts::Kept);
    const Tree tree = treeOf(parsed, text());

    QCOMPARE(parsed.sourceOf(tree)->text, text());
    QCOMPARE(parsed.sourceOf(tree)->postfix, postfix);
    QVERIFY(!parsed.sourceOf(parse(text())));
}

QTEST_APPLESS_MAIN(tst_ParsedDescriptions)
#include "tst_ParsedDescriptions.moc"
