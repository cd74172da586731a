#include "gui/MainWindow.h"

#include "ui_MainWindow.h"

#include <QCloseEvent>
#include <QLayout>

MainWindow::MainWindow(QWidget *parent)
    : QMainWindow(parent)
    , m_ui(std::make_unique<Ui::MainWindow>())
{
    m_ui->setupUi(this);
    setWindowIcon(QIcon(QStringLiteral(":/icons/hicolor/256x256/apps/deckwright.png")));
    layout()->setSizeConstraint(QLayout::SetFixedSize);
}

MainWindow::~MainWindow() = default;

void MainWindow::closeEvent(QCloseEvent *event)
{
    Q_EMIT windowWillClose();
    event->accept(); // the window hides; nothing is destroyed
}
