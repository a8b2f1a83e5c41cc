#pragma once

#include "SiteEditorDialog.h"
#include "model/Site.h"

#include <QString>

#include <functional>
#include <optional>

namespace tw {

// The site editor's connection test: a transfer engine built for the site
// (Deployer: the password and pass phrase from the secret store, the
// connection from the protocol) uploads the small file ".test" to the
// remote path (TestConnection). The answer comes on the event loop, once:
// nothing when the server took the file, else the reason.
class SiteConnectionTester {
public:
    using Done = std::function<void(const std::optional<QString>& error)>;

    // Starts a test; it keeps itself alive until done has been called.
    static void start(const SitePtr& site, Done done);
    // The test in the form the site editor takes it.
    static SiteEditorDialog::ConnectionTester tester();
    // Tests still waiting for the server.
    static int running();
};

} // namespace tw
