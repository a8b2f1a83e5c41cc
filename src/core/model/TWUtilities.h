#pragma once

#include <QString>

#include <optional>

namespace tw {

class TWUtilities {
public:
    // A remote folder path that is empty or ends with one slash: nothing or
    // "" gives "", a path that ends with "/" stays as it is, any other gets
    // one "/" appended.
    static QString fixSlashes(const std::optional<QString>& path);
};

} // namespace tw
