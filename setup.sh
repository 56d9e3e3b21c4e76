#!/bin/sh
# Installs the Debian packages that a make target needs and the machine lacks.
# The compiler, CMake and GoogleTest are taken as given. Arguments name what is
# to be done:
#   build      worldPare and its tests (make build, run, test)
#   fuzz       the fuzz targets (clang 14 and its runtime libraries)
#   page       the page in WebAssembly (Emscripten)
#   test-page  the page in headless Chromium
#   difftest   Node, npm and Chromium, for the worlds run in a browser
# Without root it names the one command to run and fails.
set -e
packages() {
  case "$1" in
    build) echo libdeflate-dev ;;
    fuzz) echo clang-14 libclang-rt-14-dev ;;
    page) echo emscripten npm=npm ;;
    test-page) echo chromium fonts-dejavu-core ;;
    difftest) echo node=nodejs npm=npm chromium ;;
    *) echo "setup.sh: no set-up named $1" >&2; exit 2 ;;
  esac
}
need=""
for target in "$@"; do
  list=$(packages "$target")
  for package in $list; do
    case "$package" in
      # A command that may come from elsewhere than Debian's package of it.
      *=*) command -v "${package%=*}" >/dev/null 2>&1 || need="$need ${package#*=}" ;;
      *) dpkg -s "$package" >/dev/null 2>&1 || need="$need $package" ;;
    esac
  done
done
[ -z "$need" ] && exit 0
if [ "$(id -u)" != 0 ]; then
  echo "Missing Debian packages; install them with:" >&2
  echo "  sudo apt-get install -y --no-install-recommends$need" >&2
  exit 1
fi
export DEBIAN_FRONTEND=noninteractive
# shellcheck disable=SC2086
apt-get install -y --no-install-recommends $need ||
  { apt-get update && apt-get install -y --no-install-recommends $need; }
