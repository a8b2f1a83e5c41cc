#pragma once

#include <QString>

class QWidget;

namespace tw {

// Help ▸ About: the application's version and those of Qt, git and curl,
// as the tools folder's programs report them, and the documentation link.
class AboutBox {
public:
    // The text of the box (rich text).
    static QString text();
    static void show(QWidget* parent);

    // The first line of "<program> --version", or "not found".
    static QString gitVersion();
    static QString curlVersion();

    static QString documentationUrl();
};

} // namespace tw
