#include <QFile>
#include <QImage>
#include <QImageReader>
#include <QtEndian>
#include <QtTest>

#include <cmath>

// The pictures and the chime that the program loads by name are compiled in and usable.
class TestResources : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void backgroundIsLightBehindThePanels();
    void pictures_data();
    void pictures();
    void glassIsAShortGentleChime();
};

void TestResources::backgroundIsLightBehindThePanels()
{
    QVERIFY2(QImageReader::supportedImageFormats().contains("tiff"),
             "no TIFF image plugin (Debian package qt6-image-formats-plugins)");
    const QImage background(QStringLiteral(":/MainBackground3.tiff"));
    QVERIFY(!background.isNull());
    // Drawn at twice the 475 x 305 points it is shown at.
    QCOMPARE(background.size(), QSize(950, 610));
    int darkest = 255;
    for (int y = 0; y < background.height() * 8 / 10; y += 5) {
        for (int x = 0; x < background.width() * 2 / 3; x += 5)
            darkest = qMin(darkest, QColor(background.pixel(x, y)).lightness());
    }
    QVERIFY2(darkest > 200, qPrintable(QStringLiteral("darkest lightness %1").arg(darkest)));
}

void TestResources::pictures_data()
{
    QTest::addColumn<QString>("resource");
    QTest::addColumn<QSize>("size");
    QTest::newRow("Open panel icon, for a 34 x 38 frame") << ":/KeynoteIcon.png" << QSize(68, 76);
    QTest::newRow("Bluetooth fallback") << ":/bluetooth.png" << QSize(64, 64);
    for (int side : {16, 32, 48, 64, 128, 256}) {
        QTest::addRow("application icon %d", side)
            << QStringLiteral(":/icons/hicolor/%1x%1/apps/deckwright.png").arg(side) << QSize(side, side);
    }
}

void TestResources::pictures()
{
    QFETCH(QString, resource);
    QFETCH(QSize, size);
    const QImage picture(resource);
    QVERIFY2(!picture.isNull(), qPrintable(resource));
    QCOMPARE(picture.size(), size);
    // Shaped pictures: the corners show what is behind them.
    QVERIFY(picture.hasAlphaChannel());
    QCOMPARE(qAlpha(picture.pixel(0, 0)), 0);
}

void TestResources::glassIsAShortGentleChime()
{
    QFile file(QStringLiteral(":/sounds/Glass.wav"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray wav = file.readAll();
    QVERIFY(wav.size() > 44);
    QCOMPARE(wav.left(4), QByteArray("RIFF"));
    QCOMPARE(wav.mid(8, 8), QByteArray("WAVEfmt "));
    const char *fmt = wav.constData() + 20;
    QCOMPARE(qFromLittleEndian<quint16>(fmt), quint16(1));          // PCM
    QCOMPARE(qFromLittleEndian<quint16>(fmt + 2), quint16(1));      // mono
    QCOMPARE(qFromLittleEndian<quint32>(fmt + 4), quint32(44100));  // samples a second
    QCOMPARE(qFromLittleEndian<quint16>(fmt + 14), quint16(16));    // bits a sample

    const qsizetype dataChunk = wav.indexOf("data", 36);
    QVERIFY(dataChunk > 0);
    const quint32 dataBytes = qFromLittleEndian<quint32>(wav.constData() + dataChunk + 4);
    QVERIFY(dataChunk + 8 + qsizetype(dataBytes) <= wav.size());
    const double seconds = dataBytes / 2 / 44100.0;
    QVERIFY2(seconds >= 0.5 && seconds <= 0.8, qPrintable(QString::number(seconds)));

    int peak = 0;
    const char *samples = wav.constData() + dataChunk + 8;
    for (quint32 i = 0; i < dataBytes / 2; ++i)
        peak = qMax(peak, std::abs(int(qFromLittleEndian<qint16>(samples + 2 * i))));
    const double peakDb = 20 * std::log10(peak / 32768.0);
    // Audible, and well below full scale.
    QVERIFY2(peakDb > -20 && peakDb < -3, qPrintable(QString::number(peakDb)));
}

QTEST_MAIN(TestResources)
#include "TestResources.moc"
