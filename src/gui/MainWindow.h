#pragma once

#include <QMainWindow>

#include <memory>

namespace Ui {
class MainWindow;
}

// The small main window. Closing it only hides it; the application goes on
// until the person quits.
class MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit MainWindow(QWidget *parent = nullptr);
    ~MainWindow() override;

    Ui::MainWindow &ui() { return *m_ui; }

Q_SIGNALS:
    void windowWillClose();

protected:
    void closeEvent(QCloseEvent *event) override;

private:
    std::unique_ptr<Ui::MainWindow> m_ui;
};
