#include "core/FileTree.h"
#include "core/PackageSearch.h"
#include "support/Program.h"

#include <QtTest>

#include <cstdio>

using namespace Qt::StringLiterals;

// What a dropped folder or a command line turns into: the packages in it, in
// name order, never from inside a package, never through a link.
class TestPackageSearch : public QObject
{
    Q_OBJECT

    QTemporaryDir m_work;
    int m_rows = 0;
    QString m_root; // a fresh folder for each test and row

    QStringList at(QStringList relatives) const
    {
        for (QString &relative : relatives)
            relative = relative.isEmpty() ? m_root : m_root + u'/' + relative;
        return relatives;
    }

private Q_SLOTS:
    void init() { QVERIFY(QDir().mkpath(m_root = m_work.filePath(QString::number(++m_rows)))); }

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
        // A subfolder's packages stand where its name falls; as file managers sort, letters whatever their
        // case, numbers by their value. A Keynote '09 file is no package to look for.
        QTest::newRow("natural order, never inside a package")
            << "mkdir -p b.key/inside.key a/z.key a/m/c.key C.key 'Talk 10.key' 'Talk 2.key' empty; : > file.key"
            << QStringList{QString()}
            << QStringList{u"a/m/c.key"_s, u"a/z.key"_s, u"b.key"_s, u"C.key"_s, u"Talk 2.key"_s, u"Talk 10.key"_s};
        // The converter refuses these by name; they are never searched as folders.
        QTest::newRow("capital extensions") << "mkdir -p Loud.KEY/in.key a/Mixed.Key/in.key" << QStringList{QString()}
                                            << QStringList{u"a/Mixed.Key"_s, u"Loud.KEY"_s};
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
        QTest::addColumn<QString>("found");
        QTest::addColumn<QString>("shown");
        const QString here = QDir::currentPath();
        QTest::newRow("folder") << u"Decks"_s << here + u"/Decks/Old/A.key"_s << u"Decks/Old/A.key"_s;
        QTest::newRow("folder with slashes") << u"./Decks//"_s << here + u"/Decks/A.key"_s << u"./Decks/A.key"_s;
        QTest::newRow("absolute folder") << here + u"/Decks"_s << here + u"/Decks/A.key"_s << here + u"/Decks/A.key"_s;
        QTest::newRow("package itself") << u"Talk.key"_s << u"Talk.key"_s << u"Talk.key"_s;
    }

    void namesWhatItFoundFromThePathGiven()
    {
        QFETCH(QString, given);
        QFETCH(QString, found);
        QTEST(PackageSearch::shownPath(given, found), "shown");
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
        // A package that cannot be read is still one: the converter says why it cannot take it.
        const QStringList command{QCoreApplication::applicationFilePath(), u"--expand"_s, m_root,
                                  m_root + u"/closed"_s};
        QCOMPARE(Program(m_work.filePath(u"stranger"_s)).run(command, Program::Nobody).lines(),
                 at({u"a.key"_s, u"locked.key"_s, u"z.key"_s}));
    }

    void searchesATreeDeeperThanAPathCanName()
    {
        // 3000 levels: one descriptor per level would run out, and so would a recursion's stack.
        const QString shallow = u"d/"_s.repeated(10) + u"e.key"_s, deep = u"d/"_s.repeated(2999) + u"Deep.key"_s;
        QVERIFY(Program::sh(u"mkdir -p %1 %2 %3"_s.arg(shallow, deep, u"d/"_s.repeated(3000)), m_root));
        QCOMPARE(PackageSearch::expand({m_root}), at({deep, shallow}));
    }
};

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    // The search run as another user, for passesOverWhatItCannotRead.
    if (app.arguments().value(1) == u"--expand"_s) {
        for (const QString &path : PackageSearch::expand(app.arguments().mid(2)))
            std::printf("%s\n", path.toUtf8().constData());
        return 0;
    }
    TestPackageSearch test;
    QTEST_SET_MAIN_SOURCE_PATH
    return QTest::qExec(&test, argc, argv);
}

#include "TestPackageSearch.moc"
