#!/usr/bin/env bash
# Sets up a Debian machine for Kestrel, builds it and runs it or its tests.
#   ./dev.sh run [FOLDER|SNAPSHOT]   install what is missing, build, start Kestrel
#   ./dev.sh test                    install what is missing, build, run every test;
#                                    with KESTREL_CHECKED=1 (as CI runs it) the
#                                    checked steps below follow
#   ./dev.sh checked [SECONDS]       the checked steps only: each fuzzer for SECONDS
#                                    (default 30), then every test again under
#                                    AddressSanitizer and UndefinedBehaviorSanitizer
#   ./dev.sh fuzz NAME [SECONDS]     one fuzzer for SECONDS (default 600), corpus kept
#   ./dev.sh format                  lay out every source file as .clang-format says
#                                    (CI checks that nothing differs)
#   ./dev.sh build                   install what is missing and build only
#   ./dev.sh bench [ARGS...]         build and run kestrel-bench with ARGS
#   ./dev.sh package                 build the Debian package kestrel_*.deb here
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build="${KESTREL_BUILD_DIR:-$here/build}"
# The checked build: clang with the sanitizers and the fuzzers' coverage.
checked="${KESTREL_CHECKED_BUILD_DIR:-$here/build-checked}"

# poppler-utils: the report tests read the printed PDF back with pdftotext;
# python3: the export tests read the export back with Python's csv module.
# libxxhash-dev: the checksum that ties side data to its snapshot file, and
# content fingerprints; xxhash: xxhsum, which the fingerprint tests check
# against; chromium: the HTML change report's tests open the page in it;
# lld: links the many test programs several times quicker than the default.
packages=(cmake ninja-build g++ pkg-config qt6-base-dev qt6-svg-dev libgtest-dev
          fonts-dejavu-core xvfb xauth dpkg-dev desktop-file-utils libxml2-utils
          poppler-utils python3 libxxhash-dev xxhash chromium lld)
# clang and its runtimes: AddressSanitizer, UndefinedBehaviorSanitizer, libFuzzer.
checked_packages=(clang-14 libclang-rt-14-dev)
# The formatter whose layout the tree keeps.
format_packages=(clang-format-14 git)

# The fuzzers and the seed kinds each starts from (see fuzz/FuzzTargets.h).
fuzzers=(snapshot_reader:snapshot,v2:snapshot v2_import:v2,snapshot:snapshot
         compare:snapshot,v2:snapshot save:snapshot,v2:snapshot
         pe_version:pe:pe ini_reader:ini:ini side_data:side:side)

jobs=$(nproc)

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
    cmake --build "$build" --parallel "$jobs"
}

build_checked() {
    packages+=("${checked_packages[@]}")
    install_missing
    if [ ! -f "$checked/build.ninja" ]; then
        CC=clang-14 CXX=clang++-14 cmake -S "$here" -B "$checked" -G Ninja \
            -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKESTREL_FUZZ=ON
    fi
    cmake --build "$checked" --parallel "$jobs"
}

# What the sanitizers report, and what they leave alone: leaks inside the
# system's libraries that are not ours (tests/sanitizers/lsan.supp says which).
sanitizer_environment() {
    export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:strict_string_checks=1:detect_stack_use_after_return=1"
    export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
    export LSAN_OPTIONS="suppressions=$here/tests/sanitizers/lsan.supp:print_suppressions=0"
}

# Every test of the suite in the checked build, windows included (offscreen).
checked_tests() {
    sanitizer_environment
    (cd "$checked" && QT_QPA_PLATFORM=offscreen ctest --output-on-failure --parallel "$jobs")
}

# Seeds for the fuzzers, made afresh by kestrel-fuzz-seeds.
make_seeds() {
    rm -rf "$checked/fuzz-seeds"
    "$checked/bin/kestrel-fuzz-seeds" "$checked/fuzz-seeds"
}

# One fuzzer for the given seconds, from the seeds (make_seeds), the inputs
# kept in fuzz/regressions and its corpus in the checked build. A crash stops
# it with the input under $checked/fuzz-crashes.
run_fuzzer() {
    local name=$1 kinds=$2 dict=$3 seconds=$4
    local seeds="$checked/fuzz-seeds" corpus="$checked/fuzz-corpus/$name"
    local crashes="$checked/fuzz-crashes"
    mkdir -p "$corpus" "$crashes" "$here/fuzz/regressions/$name"
    local dirs=("$corpus")
    for kind in ${kinds//,/ }; do dirs+=("$seeds/$kind"); done
    dirs+=("$here/fuzz/regressions/$name")
    echo "fuzz_$name: $seconds s" >&2
    sanitizer_environment
    nice -n 19 "$checked/bin/fuzz_$name" -max_total_time="$seconds" -timeout=20 \
        -rss_limit_mb=2048 -max_len=65536 -print_final_stats=1 \
        -dict="$here/fuzz/$dict.dict" -artifact_prefix="$crashes/$name-" "${dirs[@]}"
}

# Every fuzzer for the given seconds, as many side by side as there are cores,
# each into a log of its own: a fuzzer's final figures are shown when it ends,
# and the end of its log when it fails, which fails the run.
run_fuzzers() {
    local seconds=$1 logs="$checked/fuzz-logs" failed=()
    make_seeds
    rm -rf "$logs"
    mkdir -p "$logs"
    local batch=() i
    for ((i = 0; i < ${#fuzzers[@]}; i += jobs)); do
        batch=("${fuzzers[@]:i:jobs}")
        local pids=() names=()
        for f in "${batch[@]}"; do
            IFS=: read -r name kinds dict <<<"$f"
            run_fuzzer "$name" "$kinds" "$dict" "$seconds" >"$logs/$name.log" 2>&1 &
            pids+=($!)
            names+=("$name")
        done
        for j in "${!pids[@]}"; do
            if wait "${pids[j]}"; then
                grep -E '^(fuzz_|Done |stat::number_of_executed_units|stat::peak_rss_mb)' \
                    "$logs/${names[j]}.log" >&2 || true
            else
                echo "fuzz_${names[j]} FAILED; the end of its log:" >&2
                tail -n 80 "$logs/${names[j]}.log" >&2
                failed+=("${names[j]}")
            fi
        done
    done
    if [ ${#failed[@]} -gt 0 ]; then
        echo "Fuzzers that failed: ${failed[*]} (inputs in $checked/fuzz-crashes)" >&2
        return 1
    fi
}

# The tracked sources, for the formatter.
sources() {
    git -C "$here" ls-files -z '*.cpp' '*.h' '*.c'
}

# Every source file laid out as .clang-format says, or the files that are not
# named with what differs.
format_check() {
    packages+=("${format_packages[@]}")
    install_missing
    echo "Checking the layout of the sources (clang-format-14)" >&2
    (cd "$here" && sources | xargs -0 clang-format-14 --dry-run -Werror)
}

# The fuzzers first, so that the run ends with the test summary.
checked_steps() {
    build_checked
    run_fuzzers "${1:-30}"
    checked_tests
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
    [ "${KESTREL_CHECKED:-0}" = 1 ] && format_check
    install_missing
    configure_and_build
    (cd "$build" && QT_QPA_PLATFORM=offscreen ctest --output-on-failure --parallel "$jobs" "$@")
    if [ "${KESTREL_CHECKED:-0}" = 1 ]; then
        checked_steps
    fi
    ;;
checked)
    checked_steps "${1:-30}"
    ;;
format)
    packages+=("${format_packages[@]}")
    install_missing
    (cd "$here" && sources | xargs -0 clang-format-14 -i)
    ;;
fuzz)
    [ $# -ge 1 ] || { echo "usage: $0 fuzz NAME [SECONDS]" >&2; exit 2; }
    build_checked
    for f in "${fuzzers[@]}"; do
        IFS=: read -r name kinds dict <<<"$f"
        if [ "$name" = "$1" ]; then
            make_seeds
            run_fuzzer "$name" "$kinds" "$dict" "${2:-600}"
            exit 0
        fi
    done
    echo "no fuzzer $1; there are: ${fuzzers[*]%%:*}" >&2
    exit 2
    ;;
build)
    install_missing
    configure_and_build
    ;;
bench)
    # mtree is one of the tools the bench measures Kestrel against; fuse3
    # gives kestrel-bench --slow its file system with a delay on every request.
    packages+=(mtree-netbsd fuse3 libfuse3-dev)
    install_missing
    configure_and_build
    exec "$build/bin/kestrel-bench" "$@"
    ;;
package)
    packages+=(lintian)
    install_missing
    package_build="${KESTREL_PACKAGE_DIR:-$here/build-package}"
    # The compiler and linker hardening a Debian build gets.
    eval "$(DEB_BUILD_MAINT_OPTIONS=hardening=+all dpkg-buildflags --export=sh)"
    export CXXFLAGS="$CXXFLAGS $CPPFLAGS" CFLAGS="$CFLAGS $CPPFLAGS"
    if [ ! -f "$package_build/build.ninja" ]; then
        cmake -S "$here" -B "$package_build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
              -DBUILD_TESTING=OFF -DCMAKE_INSTALL_PREFIX=/usr
    fi
    cmake --build "$package_build" --parallel "$(nproc)"
    rm -f "$package_build"/kestrel_*.deb
    (cd "$package_build" && cpack -G DEB)
    deb=$(ls "$package_build"/kestrel_*.deb)
    cp "$deb" "$here/"
    deb="$here/$(basename "$deb")"
    echo "lintian:" >&2
    lintian "$deb" >&2 || true
    echo "$deb"
    ;;
*)
    echo "usage: $0 run [FOLDER|SNAPSHOT] | test | checked [SECONDS] | fuzz NAME [SECONDS] | build | bench [ARGS...] | package" >&2
    exit 2
    ;;
esac
