#!/bin/sh
# Installs the Debian packages that the page needs and the machine lacks:
# Emscripten to build it; with `test`, Chromium too, to test it headless.
set -e
need=""
command -v em++ >/dev/null 2>&1 || need="$need emscripten"
if [ "$1" = test ] && [ ! -x /usr/bin/chromium ]; then need="$need chromium fonts-dejavu-core"; fi
[ -z "$need" ] && exit 0
if [ "$(id -u)" != 0 ]; then
  echo "The page needs these Debian packages:$need" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
# shellcheck disable=SC2086
apt-get install -y --no-install-recommends $need ||
  { apt-get update && apt-get install -y --no-install-recommends $need; }
