#pragma once

#include "app/Error.h"

#include <optional>

namespace tw {

// Told why Deployer could not build a transfer engine for a site. Not owned
// by the Deployer: whoever sets it keeps it alive while setupTransporter()
// runs.
class DeployerDelegate {
public:
    virtual ~DeployerDelegate() = default;
    virtual void setupTransporterDidFailWithError(const Error& error) = 0;
};

// Keeps why the set-up failed, for a caller that reads it after
// setupTransporter() returns.
class DeployerSetupFailure : public DeployerDelegate {
public:
    std::optional<Error> error;
    void setupTransporterDidFailWithError(const Error& failure) override { error = failure; }
};

} // namespace tw
