#!/usr/bin/env bash
# The built-in demo. It runs what is built so far and says plainly what is not.
set -euo pipefail
build=${1:-build}
cli="$build/bin/tarnwell-cli"
echo "Tarnwell demo"
"$cli" version
echo
echo "Not built yet: the deployment itself (sites, transfers, the deploy controller and the command line"
echo "that drives them). This demo will deploy a sample website to a local FTP server once they exist."
