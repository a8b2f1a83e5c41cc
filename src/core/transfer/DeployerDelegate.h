#pragma once

#include "app/Error.h"

namespace tw {

// Told why Deployer could not build a transfer engine for a site. Not owned
// by the Deployer: whoever sets it keeps it alive while setupTransporter()
// runs.
class DeployerDelegate {
public:
    virtual ~DeployerDelegate() = default;
    virtual void setupTransporterDidFailWithError(const Error& error) = 0;
};

} // namespace tw
