#include "support/gui/BatchFixture.h"

#include "gui/AppDelegate.h"
#include "support/FatalTrap.h"
#include "support/PackageFactory.h"
#include "support/TestSettings.h"

#include <QFile>
#include <QTest>

BatchFixture::BatchFixture()
{
    FatalTrap::install();
    TestSettings::isolateScratch(m_work.path());
    // A home of the test's own: its documents folder is where dialogs start.
    qputenv("HOME", QFile::encodeName(m_work.path())), qunsetenv("XDG_CONFIG_HOME"), QDir().mkpath(work("Documents"));
    const PackageFactory factory(work("in"));
    for (const char *name : {"My Talk.key", "Plain.key", "Three.v2.key"})
        factory.make(QString::fromUtf8(name));
    factory.make("Newer.key", PackageFactory::keynoteFiveDocument());
    factory.makeWithoutIndex("Not Keynote.key");
    QFile(in("notes.txt")).open(QIODevice::WriteOnly);
    OpenPanel::setResponder([this](OpenPanel &panel) {
        panels.append(panel);
        if (answers.empty())
            return OpenPanel::CancelResponse;
        const OpenPanel::Responder next = answers.front();
        answers.pop_front();
        return next(panel);
    });
}

void BatchFixture::reset(const QVariantMap &extra)
{
    alerts.clear();
    panels.clear();
    answers.clear();
    desktop.calls.clear();
    out = work(QStringLiteral("out %1 %2").arg(QTest::currentTestFunction(), QTest::currentDataTag()));
    QDir(out).removeRecursively();
    QDir().mkpath(out);
    TestSettings::useOutputFolder(out, extra);
}

OpenPanel::Responder BatchFixture::answer(const QStringList &names, OpenPanel::Response response) const
{
    QList<QUrl> urls;
    for (const QString &name : names)
        urls.append(OpenPanel::urlForPath(in(name), true));
    return [urls, response](OpenPanel &panel) {
        panel.setUrls(urls);
        return response;
    };
}

void BatchFixture::runBatch(const QStringList &names)
{
    // The open dialog comes first, before any dialog whose answer is queued already.
    answers.push_front(answer(names, OpenPanel::OKResponse));
    AppDelegate().openFileMenuItem();
}
