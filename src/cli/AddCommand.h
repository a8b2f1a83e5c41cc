#pragma once

#include "Command.h"
#include "editor/SiteForm.h"

namespace tw::cli {

// Adds a site with the site editor's checks; its password and pass phrase go
// into the secret store.
class AddCommand : public Command {
public:
    AddCommand();

    // Prints the editor's objections, field by field.
    static void printProblems(const QString& heading, const QList<FieldProblem>& problems);

protected:
    int run(const QCommandLineParser& parser) override;
};

} // namespace tw::cli
