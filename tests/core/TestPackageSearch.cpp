#include "core/FileTree.h"
#include "core/PackageSearch.h"
#include "support/Program.h"

#include <QtTest>

#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

// What a dropped folder or a command line turns into: the packages in it, in
// name order, never from inside a package, never through a link.
class TestPackageSearch : public QObject
{
    Q_OBJECT

    QTemporaryDir m_work;
    QString m_root; // a fresh folder for each test and row

    QStringList at(const QStringList &relatives) const
    {
        QStringList paths;
        for (const QString &relative : relatives)
            paths.append(relative.isEmpty() ? m_root : m_root + u'/' + relative);
        return paths;
    }

private Q_SLOTS:
    void init()
    {
        m_root = m_work.filePath(QString::fromLatin1(QTest::currentTestFunction()) + u'-'
                                 + QString::fromLatin1(QTest::currentDataTag()));
        QVERIFY(QDir().mkpath(m_root));
    }

    void cleanupTestCase()
    {
        // Folders we may not enter and trees deeper than a path can name defeat QTemporaryDir.
        QVERIFY(FileTree::remove(m_work.path()));
    }

    void findsThePackagesInWhatIsGiven_data()
    {
        QTest::addColumn<QString>("script");    // makes the tree, in the row's folder
        QTest::addColumn<QStringList>("given"); // relative to it; empty: the folder itself
        QTest::addColumn<QStringList>("found");
        // A subfolder's packages stand where its name falls; capitals sort first, as bytes do.
        // A Keynote '09 file is no package to look for.
        QTest::newRow("name order, never inside a package")
            << "mkdir -p b.key/inside.key a/z.key a/m/c.key C.key empty; : > file.key" << QStringList{QString()}
            << QStringList{u"C.key"_s, u"a/m/c.key"_s, u"a/z.key"_s, u"b.key"_s};
        // The converter refuses what is not a package, with its reason: it is passed on.
        QTest::newRow("what is not a folder kept, each item once")
            << "mkdir -p Talk.key Decks/One.key Decks/Two.key; : > notes.txt"
            << QStringList{u"notes.txt"_s, u"Decks/Two.key"_s, u"Decks/"_s,   u"missing.key"_s,
                           u"Talk.key"_s,  u"Decks"_s,         u"notes.txt"_s}
            << QStringList{u"notes.txt"_s, u"Decks/Two.key"_s, u"Decks/One.key"_s, u"missing.key"_s, u"Talk.key"_s};
        QTest::newRow("nothing given") << "" << QStringList() << QStringList();
        QTest::newRow("no link inside followed")
            << "mkdir -p ../elsewhere/Far.key Decks/Near.key; cd Decks; ln -s ../../elsewhere 'linked folder'; "
               "ln -s ../../elsewhere/Far.key Alias.key; ln -s .. loop; ln -s . self"
            << QStringList{u"Decks"_s} << QStringList{u"Decks/Near.key"_s};
        // What the person names through a link is taken as what it names.
        QTest::newRow("a link given is what it names")
            << "mkdir -p Decks/Near.key; ln -s Decks Shortcut; ln -s Decks/Near.key Talk"
            << QStringList{u"Shortcut"_s, u"Talk"_s} << QStringList{u"Shortcut/Near.key"_s, u"Talk"_s};
    }

    void findsThePackagesInWhatIsGiven()
    {
        QFETCH(QString, script);
        QFETCH(QStringList, given);
        QFETCH(QStringList, found);
        QVERIFY(Program::sh(script, m_root));
        QCOMPARE(PackageSearch::expand(at(given)), at(found));
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
        const QString path = found.isEmpty() ? given : QDir::currentPath() + u'/' + found;
        QTEST(PackageSearch::shownPath(given, path), "shown");
    }

    // As someone who may not read what they are refused, in a copy of this program.
    void passesOverWhatItCannotRead()
    {
        if (!Program::canRunAsNobody())
            QSKIP(Program::whyNotAsNobody());
        QVERIFY(
            Program::sh(u"mkdir -p a.key closed/hidden.key unlisted/hidden.key locked.key z.key; chmod 000 closed "
                        "locked.key; chmod 111 unlisted; chmod 755 .."_s,
                        m_root));
        const Program stranger(m_work.filePath(u"stranger"_s));
        const auto expand = [&](const QString &path) {
            return stranger.run({QCoreApplication::applicationFilePath(), u"--expand"_s, path}, Program::Nobody)
                .lines();
        };
        // A package that cannot be read is still one: the converter says why it cannot take it.
        QCOMPARE(expand(m_root), at({u"a.key"_s, u"locked.key"_s, u"z.key"_s}));
        QCOMPARE(expand(m_root + u"/closed"_s), QStringList());
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
        QCOMPARE(found.first(), m_root + u'/' + QString::fromLatin1(relative + "Shallow.key"));
        QVERIFY(found.last().endsWith(u"/d/d/Deep.key"_s));
        QCOMPARE(found.last().count(u"/d"_s), depth - 1);
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
