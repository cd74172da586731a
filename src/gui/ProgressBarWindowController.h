#pragma once

#include "widgets/ProgressIndicator.h"

#include <QLabel>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QWidget>

#include <memory>

class Converter;

// Owns the small window shown while one presentation converts, and starts
// that conversion: showWindow reads the file from the setting prezPath, runs a
// fresh Converter to the end, and handles its events on the way: the bar
// advances, a rejected file is reported and recorded, a finished one gets the
// completion action the person chose.
class ProgressBarWindowController : public QObject
{
    Q_OBJECT

public:
    // With a layout name ("ProgressBarView") the window is built from that form;
    // without one it is an empty window.
    explicit ProgressBarWindowController(const QString &windowLayoutName = QString(), QObject *parent = nullptr);
    ~ProgressBarWindowController() override;

    QWidget *mainW() const { return m_mainW; }
    ProgressIndicator *progressIndy() const { return m_progressIndy; }
    QLabel *exTextField() const { return m_exTextField; }
    Converter &converter() const { return *m_converter; }

    // Loads the window on first use.
    QWidget *window();
    bool isWindowLoaded() const { return m_windowLoaded; }
    void close();

    // The file-system path of a URL text such as file:///Users/a/My%20Talk.key/.
    static QString convertFileUrlToPath(const QString &urlText);
    // The name shown for a prezPath: its last "/" piece, percent escapes undone.
    static QString displayName(const QString &prezPath);

    virtual void showWindow(QObject *sender);

    virtual void moveProgressBar();
    virtual void finishedWithErrorNotKeynoteFour();
    virtual void saveErrorPrez(const QString &name);
    virtual void finishedWithErrorNotKeynote();
    virtual void finishedConversion();

protected:
    virtual void awakeFromNib();
    virtual void windowWillLoad();
    virtual void loadWindow();
    virtual void windowDidLoad();
    virtual std::unique_ptr<Converter> makeConverter(const QString &prezOrigPath);

private:
    void rejectCurrentFile();
    void reportRejectedFile(const QString &name, qint64 code, const QString &reason);
    ProgressIndicator *requiredProgressIndy() const;
    QLabel *requiredExTextField() const;

    QString m_windowLayoutName;
    QPointer<QWidget> m_mainW;
    std::unique_ptr<Converter> m_converter;
    QPointer<ProgressIndicator> m_progressIndy;
    QPointer<QLabel> m_exTextField;
    bool m_windowLoaded = false;
    bool m_placed = false;
};
