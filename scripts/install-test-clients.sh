#!/usr/bin/env bash
# Installs the test clients from npm (the official MCP client that drives the
# agent server), at the versions package-lock.json pins; again only when the
# lock file changed.
set -euo pipefail
cd "$(dirname "$0")/.."
client=tests/agent/client
stamp=$client/node_modules/.installed-lock
if [ -f "$stamp" ] && cmp -s "$client/package-lock.json" "$stamp"; then
  exit 0
fi
npm ci --prefix "$client" --no-audit --no-fund --loglevel=error
cp "$client/package-lock.json" "$stamp"
