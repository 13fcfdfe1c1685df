#include "Configuration/ConfigurationAndProcessDataParser.h"
#include "Configuration/ConfigurationAndProcessDataTreeNode.h"
#include "support/LogCapture.h"

#include <QtTest>

#include <algorithm>
#include <functional>
#include <vector>

#include <pthread.h>

namespace {

using Node = ConfigurationAndProcessDataTreeNode;
using Element = ConfigurationAndProcessDataBase::BaseClassSharedPointer;

constexpr unsigned char untouched = 0xa5;

void *callWork(void *work)
{
    (*static_cast<std::function<void()> *>(work))();
    return nullptr;
}

/// What a thread that does the work touches of its stack; -1 if there is no such thread.
qint64 stackOf(std::function<void()> work)
{
    constexpr std::size_t room = std::size_t{16} << 20;
    std::vector<unsigned char> stack(room, untouched);
    pthread_attr_t attributes;
    pthread_t thread = 0;
    if (pthread_attr_init(&attributes) != 0
        || pthread_attr_setstack(&attributes, stack.data(), stack.size()) != 0
        || pthread_create(&thread, &attributes, callWork, &work) != 0
        || pthread_join(thread, nullptr) != 0) {
        return -1;
    }
    pthread_attr_destroy(&attributes);
    const auto isTouched = [](unsigned char byte) { return byte != untouched; };
    const auto lowest = std::find_if(stack.cbegin(), stack.cend(), isTouched);
    return stack.cend() - lowest;
}

Element chainOf(int depth)
{
    const QJsonObject json{{"type", "treenode"}, {"info", "text"}};
    Element element(new Node(json, nullptr));
    for (int i = 1; i < depth; ++i) {
        const QSharedPointer<Node> parent(new Node(json, nullptr));
        parent->addElement("child", element);
        element = parent;
    }
    return element;
}

using Framing = std::function<void(const Element &)>;

/// Of one level of a tree, in bytes.
double stackPerLevel(const Framing &framing)
{
    constexpr int few = 100;
    constexpr int many = 1100;
    const Element shallow = chainOf(few);
    const Element deep = chainOf(many);
    const qint64 least = stackOf([&framing, &shallow] { framing(shallow); });
    const qint64 most = stackOf([&framing, &deep] { framing(deep); });
    return static_cast<double>(most - least) / (many - few);
}

} // namespace

/// How deep a tree may be: what framing takes of the stack for each level.
class tst_FramingDepth : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void textTakesAtMostTwiceTheStackOfTheObject();
};

void tst_FramingDepth::textTakesAtMostTwiceTheStackOfTheObject()
{
    const LogCapture log;
    const ConfigurationAndProcessDataParser parser;

    const double ofObject = stackPerLevel(
        [&parser](const Element &root) { parser.createJsonObject(root); });
    const double ofText = stackPerLevel([&parser](const Element &root) {
        QByteArray text;
        parser.frameToByteArray(root, text, QJsonDocument::Compact);
    });

    QVERIFY(ofObject > 0);
    QVERIFY2(ofText <= 2 * ofObject,
             qPrintable(
                 QStringLiteral("%1 and %2 bytes of the stack a level").arg(ofText).arg(ofObject)));
}

QTEST_GUILESS_MAIN(tst_FramingDepth)

#include "tst_FramingDepth.moc"
