#!/usr/bin/env bash
# Sets up a Debian machine for Kestrel, builds it and runs it or its tests.
#   ./dev.sh run [FOLDER|SNAPSHOT]   install what is missing, build, start Kestrel
#   ./dev.sh test                    install what is missing, build, run every test
#   ./dev.sh build                   install what is missing and build only
#   ./dev.sh bench [ARGS...]         build and run kestrel-bench with ARGS
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build="${KESTREL_BUILD_DIR:-$here/build}"

# poppler-utils: the report tests read the printed PDF back with pdftotext.
packages=(cmake ninja-build g++ pkg-config qt6-base-dev libgtest-dev
          fonts-dejavu-core xvfb xauth poppler-utils)

install_missing() {
    local missing=()
    for p in "${packages[@]}"; do
        if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
            missing+=("$p")
        fi
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "Installing: ${missing[*]}" >&2
    local sudo=()
    [ "$(id -u)" -ne 0 ] && sudo=(sudo)
    "${sudo[@]}" apt-get update -qq
    DEBIAN_FRONTEND=noninteractive "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

configure_and_build() {
    if [ ! -f "$build/build.ninja" ]; then
        cmake -S "$here" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE="${KESTREL_BUILD_TYPE:-RelWithDebInfo}"
    fi
    cmake --build "$build" --parallel "$(nproc)"
}

command=${1:-run}
[ $# -gt 0 ] && shift

case "$command" in
run)
    install_missing
    configure_and_build
    exec "$build/bin/kestrel" "$@"
    ;;
test)
    install_missing
    configure_and_build
    cd "$build"
    QT_QPA_PLATFORM=offscreen ctest --output-on-failure --parallel "$(nproc)" "$@"
    ;;
build)
    install_missing
    configure_and_build
    ;;
bench)
    # mtree is one of the tools the bench measures Kestrel against.
    packages+=(mtree-netbsd)
    install_missing
    configure_and_build
    exec "$build/bin/kestrel-bench" "$@"
    ;;
*)
    echo "usage: $0 run [FOLDER|SNAPSHOT] | test | build | bench [ARGS...]" >&2
    exit 2
    ;;
esac
