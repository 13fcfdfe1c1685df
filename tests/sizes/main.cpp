#include "Parts.h"

#include <QCoreApplication>
#include <QHash>
#include <QLoggingCategory>

#include <cstdio>
#include <exception>

namespace {

using Part = void (*)(const QStringList &);

Part partOf(const QString &name)
{
    static const QHash<QString, Part> parts{{QStringLiteral("tree"), Parts::tree},
                                            {QStringLiteral("text"), Parts::text},
                                            {QStringLiteral("table"), Parts::table},
                                            {QStringLiteral("build"), Parts::build},
                                            {QStringLiteral("region"), Parts::region},
                                            {QStringLiteral("slotText"), Parts::slotText},
                                            {QStringLiteral("processes"), Parts::processes},
                                            {QStringLiteral("regions"), Parts::regions},
                                            {QStringLiteral("hold"), Parts::hold},
                                            {QStringLiteral("planted"), Parts::planted}};
    return parts.value(name);
}

} // namespace

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("*.debug=false"));
    const QStringList words = QCoreApplication::arguments().mid(1);
    const Part part = words.isEmpty() ? nullptr : partOf(words.constFirst());
    if (part == nullptr) {
        std::fprintf(stderr, "sizes: wants a part and what it works on; run script/sizes\n");
        return 2;
    }
    try {
        part(words.mid(1));
    } catch (const std::exception &problem) {
        std::fprintf(stderr, "sizes: %s\n", problem.what());
        return 1;
    }
    return 0;
}
