#include "support/PackageFactory.h"
#include "widgets/PackageFileDialog.h"

#include <QtTest>
#include <QtWidgets>

class TestPackageFileDialog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void theDefaultButtonKeepsItsLabelWithAPackageSelected()
    {
        QTemporaryDir dir;
        const QString package = PackageFactory(dir.path()).make("Talk.key");
        PackageFileDialog dialog(PackageFileDialog::FilesAndPackages);
        dialog.setAcceptLabel("Convert");
        dialog.show();
        dialog.selectFile(package); // opens its folder too
        QPushButton *accept = dialog.findChild<QDialogButtonBox *>("buttonBox")->button(QDialogButtonBox::Open);
        QVERIFY(accept);
        QTRY_COMPARE(dialog.selectedFiles(), QStringList{package});
        QTRY_COMPARE(accept->text(), QStringLiteral("Convert"));
    }
};

QTEST_MAIN(TestPackageFileDialog)
#include "TestPackageFileDialog.moc"
