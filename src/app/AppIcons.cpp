// The application's icons, built from the PNG renderings compiled into the
// program as resources.
#include "AppIcons.h"

#include <QCoreApplication>
#include <QString>

#include <array>
#include <map>
#include <string_view>

// The resources live in a static library, whose registration nothing else
// refers to: without this call the linker would leave them out.
static void registerIconResources()
{
    static const bool registered = [] {
        Q_INIT_RESOURCE(corvale);
        return true;
    }();
    (void)registered;
}

namespace {

constexpr std::array<std::string_view, 4> binIconNames = {
    "empty-bin-small", "bin-range-single", "smart-range-single", "smart-bin-small"};

// Each rendering is drawn for its own size rather than scaled from another,
// so the 16-pixel icon keeps its edges on whole pixels.
QIcon iconFromRenderings(const std::string &name, std::initializer_list<int> sizes)
{
    registerIconResources();
    QIcon icon;
    for (const int size : sizes) {
        icon.addFile(QStringLiteral(":/icons/%1-%2.png").arg(QString::fromStdString(name)).arg(size),
                     QSize(size, size));
    }
    return icon;
}

// Rows ask for their icon at every paint, so each icon is made once. The
// icons go with the application: pixmaps must not outlive it.
QIcon madeIcon(const std::string &name, std::initializer_list<int> sizes)
{
    static std::map<std::string, QIcon> made;
    static const bool clearedAtExit = [] {
        qAddPostRoutine([] { made.clear(); });
        return true;
    }();
    (void)clearedAtExit;
    const auto found = made.find(name);
    if (found != made.end())
        return found->second;
    return made.emplace(name, iconFromRenderings(name, sizes)).first->second;
}

} // namespace

bool AppIcons::isKnown(const std::string &name)
{
    for (const auto known : binIconNames) {
        if (known == name)
            return true;
    }
    return false;
}

QIcon AppIcons::named(const std::string &name)
{
    if (!isKnown(name))
        return {};
    return madeIcon(name, {16, 32, 64});
}

QIcon AppIcons::application()
{
    return madeIcon("corvale", {16, 32, 64, 128, 256});
}
