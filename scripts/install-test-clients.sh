#!/usr/bin/env bash
# Installs the test clients from npm, at the versions each package-lock.json
# pins, again only when a lock file changed: the official MCP client that
# drives the agent server, and puppeteer-core, which drives Debian's Chromium
# through the window.
set -euo pipefail
cd "$(dirname "$0")/.."
for client in tests/agent/client tests/ui/browser; do
  stamp=$client/node_modules/.installed-lock
  if [ -f "$stamp" ] && cmp -s "$client/package-lock.json" "$stamp"; then
    continue
  fi
  npm ci --prefix "$client" --no-audit --no-fund --loglevel=error
  cp "$client/package-lock.json" "$stamp"
done
