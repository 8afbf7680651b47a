// The application's own icons: the four kinds of bin in the outline and the
// application itself.
#pragma once

#include <QIcon>

#include <string>

// Icons drawn for Corvale and built into the program as resources, each at
// 16, 32 and 64 pixels so that it stays crisp at 16 points on ordinary and
// high-density screens alike. Main thread only, while the QApplication
// exists: the icons are made once and let go when it ends.
class AppIcons
{
public:
    // The icon named "empty-bin-small", "bin-range-single",
    // "smart-range-single" or "smart-bin-small"; a null QIcon for any other
    // name, the empty name included.
    static QIcon named(const std::string &name);

    // The application's icon, for windows, alerts and the desktop entry;
    // never null.
    static QIcon application();

    // Whether `name` is one of the names named() knows.
    static bool isKnown(const std::string &name);
};
