// The yardstick for start-up time and memory: a bare Qt Widgets program with one
// tray icon and one 420 x 520 window showing a push button with a line of text
// (so it pays for fonts, as every real window does), nothing else.

#include <QApplication>
#include <QIcon>
#include <QPixmap>
#include <QPushButton>
#include <QSystemTrayIcon>
#include <QVBoxLayout>
#include <QWidget>

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    QPixmap pm(22, 22);
    pm.fill(Qt::darkCyan);
    QSystemTrayIcon tray{QIcon(pm)};
    tray.show();
    QWidget window;
    window.setWindowTitle(QStringLiteral("Baseline"));
    window.resize(420, 520);
    auto* layout = new QVBoxLayout(&window);
    layout->addWidget(new QPushButton(QStringLiteral("Start focus session"), &window));
    window.show();
    return app.exec();
}
