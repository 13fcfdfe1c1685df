#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <vector>

#include <dlfcn.h>

namespace {

/// A library that a running program loads.
class Loaded
{
public:
    explicit Loaded(const QString &path)
        : m_handle(dlopen(QFile::encodeName(path).constData(), RTLD_NOW | RTLD_LOCAL))
    {
    }
    ~Loaded()
    {
        if (m_handle != nullptr) {
            dlclose(m_handle);
        }
    }
    Loaded(Loaded &&other) noexcept : m_handle(other.m_handle) { other.m_handle = nullptr; }

    Loaded(const Loaded &) = delete;
    Loaded &operator=(const Loaded &) = delete;
    Loaded &operator=(Loaded &&) = delete;

    bool isThere() const { return m_handle != nullptr; }

private:
    void *m_handle;
};

} // namespace

class tst_LibraryCopies : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void manyCopiesFindRoomForTheirThreadLocalWords();
};

void tst_LibraryCopies::manyCopiesFindRoomForTheirThreadLocalWords()
{
    const QTemporaryDir directory;
    QVERIFY(directory.isValid());
    std::vector<Loaded> copies;

    // As plug-ins bring them along, each its own.
    for (int i = 0; i < 8; ++i) {
        const QString path = directory.filePath(QStringLiteral("libCopy%1.so").arg(i));
        QVERIFY(QFile::copy(QStringLiteral(TESSEL_LIBRARY), path));
        copies.emplace_back(path);

        QVERIFY2(copies.back().isThere(), dlerror());
    }
}

QTEST_GUILESS_MAIN(tst_LibraryCopies)
#include "tst_LibraryCopies.moc"
