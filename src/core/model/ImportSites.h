#pragma once

#include "model/Site.h"

#include <QByteArray>
#include <QString>

#include <optional>
#include <variant>

namespace tw {

class UserInteraction;

// The "import sites" command: sites from an export file are added to the end
// of the stored list, each with a new id and its password in the secret
// store. A file that cannot be read adds nothing and says why.
class ImportSites {
public:
    explicit ImportSites(UserInteraction& interaction);

    std::optional<QString> importFilePath;

    void browseFiles();

    // Reading an export file: the sites it holds, or why it holds none.
    enum class Failure { NotJson, NotAnArray };
    struct ParseError {
        Failure failure;
        QString description; // the parser's explanation for NotJson
    };
    static std::variant<SiteList, ParseError> parse(const QByteArray& bytes);

private:
    UserInteraction& m_interaction;
};

} // namespace tw
