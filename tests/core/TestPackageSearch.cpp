#include "core/FileTree.h"
#include "core/PackageSearch.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// What a dropped folder or a command line turns into: the packages in it, in
// name order, never from inside a package, never through a link.
class TestPackageSearch : public QObject
{
    Q_OBJECT

    QTemporaryDir m_work;
    QString m_root; // a fresh folder for each test

    QString at(const QString &relative) const { return m_root + QLatin1Char('/') + relative; }
    QStringList each(const QStringList &relatives) const
    {
        QStringList paths;
        for (const QString &relative : relatives)
            paths.append(at(relative));
        return paths;
    }
    // Folders, created with their parents; a name ending in ".key" is a package.
    void folders(const QStringList &relatives) const
    {
        for (const QString &path : each(relatives))
            QVERIFY(QDir().mkpath(path));
    }

    // The search as someone who may not read what they are refused: root reads
    // everything, so then it runs as nobody, in a copy of this program.
    QStringList expandAsStranger(const QStringList &paths)
    {
        if (::geteuid() != 0)
            return PackageSearch::expand(paths);
        QProcess child;
        child.start("setpriv", QStringList{"--reuid=nobody", "--regid=nogroup", "--clear-groups",
                                           QCoreApplication::applicationFilePath(), "--expand"}
                                   + paths);
        if (!child.waitForFinished(30000) || child.exitCode() != 0)
            return {QStringLiteral("the search as nobody failed: ")
                    + QString::fromLocal8Bit(child.readAllStandardError())};
        return QString::fromUtf8(child.readAllStandardOutput()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
    }

private Q_SLOTS:
    void init()
    {
        m_root = m_work.filePath(QString::fromLatin1(QTest::currentTestFunction()));
        QVERIFY(QDir().mkpath(m_root));
    }

    void cleanupTestCase()
    {
        // Folders we may not enter and trees deeper than a path can name defeat QTemporaryDir.
        QVERIFY(FileTree::remove(m_work.path()));
    }

    void findsPackagesInNameOrderWithoutEnteringThem()
    {
        folders({"b.key/inside.key", "a/z.key", "a/m/c.key", "C.key", "empty"});
        QFile file(at("file.key"));
        QVERIFY(file.open(QIODevice::WriteOnly)); // a Keynote '09 file is no package to look for
        file.close();
        // A subfolder's packages stand where its name falls; capitals sort first, as bytes do.
        QCOMPARE(PackageSearch::expand({m_root}), each({"C.key", "a/m/c.key", "a/z.key", "b.key"}));
    }

    void namesWhatItFoundFromThePathGiven_data()
    {
        QTest::addColumn<QString>("given");
        QTest::addColumn<QString>("found"); // relative to the working folder
        QTest::addColumn<QString>("shown");
        QTest::newRow("folder") << "Decks"
                                << "Decks/Old/A.key"
                                << "Decks/Old/A.key";
        QTest::newRow("folder with slashes") << "./Decks//"
                                             << "Decks/A.key"
                                             << "./Decks/A.key";
        QTest::newRow("absolute folder") << QDir::currentPath() + "/Decks"
                                         << "Decks/A.key" << QDir::currentPath() + "/Decks/A.key";
        QTest::newRow("package itself") << "Talk.key" << QString() << "Talk.key";
    }

    void namesWhatItFoundFromThePathGiven()
    {
        QFETCH(QString, given);
        QFETCH(QString, found);
        const QString path = found.isEmpty() ? given : QDir::currentPath() + QLatin1Char('/') + found;
        QTEST(PackageSearch::shownPath(given, path), "shown");
    }

    void keepsWhatIsNotAFolderAndListsEachOnce()
    {
        folders({"Talk.key", "Decks/One.key", "Decks/Two.key"});
        const QString missing = at("missing.key");
        const QString text = at("notes.txt");
        QFile(text).open(QIODevice::WriteOnly);
        // The converter refuses what is not a package, with its reason: it is passed on.
        QCOMPARE(PackageSearch::expand(
                     {text, at("Decks/Two.key"), at("Decks/"), missing, at("Talk.key"), at("Decks"), text}),
                 QStringList({text, at("Decks/Two.key"), at("Decks/One.key"), missing, at("Talk.key")}));
        QCOMPARE(PackageSearch::expand({}), QStringList());
    }

    void followsNoLinkInside()
    {
        const QString elsewhere = m_work.filePath("elsewhere");
        QVERIFY(QDir().mkpath(elsewhere + "/Far.key"));
        folders({"Decks/Near.key"});
        QVERIFY(QFile::link(elsewhere, at("Decks/linked folder")));
        QVERIFY(QFile::link(elsewhere + "/Far.key", at("Decks/Alias.key")));
        QVERIFY(QFile::link("..", at("Decks/loop")));
        QVERIFY(QFile::link(".", at("Decks/self")));
        QCOMPARE(PackageSearch::expand({at("Decks")}), each({"Decks/Near.key"}));

        // What the person names through a link is taken as what it names.
        QVERIFY(QFile::link(at("Decks"), at("Shortcut")));
        QCOMPARE(PackageSearch::expand({at("Shortcut")}), each({"Shortcut/Near.key"}));
        QVERIFY(QFile::link(at("Decks/Near.key"), at("Talk")));
        QCOMPARE(PackageSearch::expand({at("Talk")}), each({"Talk"}));
    }

    void passesOverWhatItCannotRead()
    {
        if (::geteuid() == 0 && QStandardPaths::findExecutable("setpriv").isEmpty())
            QSKIP("as root every folder can be read; running as nobody needs setpriv");
        folders({"a.key", "closed/hidden.key", "unlisted/hidden.key", "locked.key", "z.key"});
        QVERIFY(QFile::setPermissions(at("closed"), {}));
        QVERIFY(QFile::setPermissions(at("unlisted"), QFile::ExeOwner | QFile::ExeOther));
        QVERIFY(QFile::setPermissions(at("locked.key"), {}));
        // The way in is open to the stranger.
        QVERIFY(::chmod(QFile::encodeName(m_work.path()).constData(), 0755) == 0);
        // A package that cannot be read is still one: the converter says why it cannot take it.
        QCOMPARE(expandAsStranger({m_root}), each({"a.key", "locked.key", "z.key"}));
        QCOMPARE(expandAsStranger({at("closed")}), QStringList());
    }

    void searchesATreeDeeperThanAPathCanName()
    {
        // 3000 levels: one descriptor per level would run out, and so would a recursion's stack.
        const int depth = 3000;
        int fd = ::open(QFile::encodeName(m_root).constData(), O_RDONLY | O_DIRECTORY);
        QVERIFY(fd >= 0);
        QByteArray relative;
        for (int i = 0; i < depth; ++i) {
            if (i == 10 || i == depth - 1)
                QCOMPARE(::mkdirat(fd, i == 10 ? "Shallow.key" : "Deep.key", 0755), 0);
            QCOMPARE(::mkdirat(fd, "d", 0755), 0);
            const int next = ::openat(fd, "d", O_RDONLY | O_DIRECTORY);
            ::close(fd);
            fd = next;
            QVERIFY(fd >= 0);
            if (i < 10)
                relative += "d/";
        }
        ::close(fd);
        const QStringList found = PackageSearch::expand({m_root});
        QCOMPARE(found.size(), 2);
        QCOMPARE(found.first(), at(QString::fromLatin1(relative + "Shallow.key")));
        QVERIFY(found.last().endsWith(QLatin1String("/d/d/Deep.key")));
        QCOMPARE(found.last().count("/d"), depth - 1);
    }
};

int main(int argc, char *argv[])
{
    // The search run as another user, for passesOverWhatItCannotRead.
    if (argc > 1 && qstrcmp(argv[1], "--expand") == 0) {
        QStringList paths;
        for (int i = 2; i < argc; ++i)
            paths.append(QFile::decodeName(argv[i]));
        for (const QString &path : PackageSearch::expand(paths))
            std::printf("%s\n", path.toUtf8().constData());
        return 0;
    }
    QCoreApplication app(argc, argv);
    TestPackageSearch test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "TestPackageSearch.moc"
