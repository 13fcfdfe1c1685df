#include "InspectedRegion.h"

#include <QtTest>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include <dlfcn.h>

namespace {

/// Where the kernel says that the program of each process lies; empty: as it is.
std::string programOfAll;

bool endsWith(const std::string &path, const std::string &ending)
{
    return path.size() >= ending.size()
           && path.compare(path.size() - ending.size(), ending.size(), ending) == 0;
}

} // namespace

/// In the place of the function that Qt calls.
extern "C" Q_DECL_EXPORT ssize_t readlink(const char *path, char *target, std::size_t size)
{
    using Function = ssize_t (*)(const char *, char *, std::size_t);
    static const auto call = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "readlink"));
    if (programOfAll.empty() || !endsWith(path, "/exe")) {
        return call(path, target, size);
    }
    const std::size_t count = std::min(size, programOfAll.size());
    std::memcpy(target, programOfAll.data(), count);
    return static_cast<ssize_t>(count);
}

/// Users whose program was removed, or replaced by its next version, while they run: the kernel adds a mark to the
/// name.
class tst_ReplacedPrograms : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { programOfAll.clear(); }
    void nameIsThatOfTheProgram_data();
    void nameIsThatOfTheProgram();
};

void tst_ReplacedPrograms::nameIsThatOfTheProgram_data()
{
    QTest::addColumn<QString>("told");
    QTest::addColumn<QString>("name");
    QTest::newRow("there") << "/opt/plant/controller"
                           << "controller";
    QTest::newRow("removed") << "/opt/plant/controller (deleted)"
                             << "controller";
    QTest::newRow("removed with its folder") << "/opt/plant (deleted)/controller (deleted)"
                                             << "controller";
    QTest::newRow("with the mark inside its name") << "/opt/plant/a (deleted) b"
                                                   << "a (deleted) b";
}

void tst_ReplacedPrograms::nameIsThatOfTheProgram()
{
    QFETCH(QString, told);
    QFETCH(QString, name);
    const TwoNumbers description;
    const QuietManager creator(description, create);
    QVERIFY(creator.isValid());
    programOfAll = told.toStdString();

    const QVector<RegionUser> users = description.inspect().getUsers();

    QCOMPARE(users.size(), 1);
    QCOMPARE(users[0].program, name);
}

QTEST_GUILESS_MAIN(tst_ReplacedPrograms)

#include "tst_ReplacedPrograms.moc"
