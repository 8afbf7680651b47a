// The desktop application's entry point.
#include <QApplication>

int main(int argc, char **argv)
{
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Corvale"));
    return 0;
}
