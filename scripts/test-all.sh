#!/usr/bin/env bash
# Installs what is missing, then configures, builds and tests every
# configuration in turn; stops at the first failure.
#   bash scripts/test-all.sh              all configurations
#   bash scripts/test-all.sh gcc arm64    only these
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

CONFIGS=(gcc clang sanitize arm64 scalar android-arm64 check arm64-check x86-baseline)
if (($# > 0)); then
    CONFIGS=("$@")
fi

bash scripts/setup.sh

summary=()
current=""
started=$SECONDS

print_summary() {
    echo
    echo "==== summary"
    local line
    for line in "${summary[@]}"; do
        echo "$line"
    done
}

on_exit() {
    local rc=$?
    if ((rc != 0)) && [[ -n "$current" ]]; then
        summary+=("$(printf '%-14s FAILED (%s)' "${current%%:*}" "${current#*:}")")
        print_summary
        echo "test-all: failed in ${current#*:} of ${current%%:*} after $((SECONDS - started)) s" >&2
    fi
}
trap on_exit EXIT

for config in "${CONFIGS[@]}"; do
    t0=$SECONDS
    echo "==== $config: configure"
    current="$config:configure"
    cmake --preset "$config"
    echo "==== $config: build"
    current="$config:build"
    cmake --build --preset "$config" -j2
    t1=$SECONDS
    echo "==== $config: test"
    current="$config:test"
    ctest --preset "$config" --output-on-failure | tee "build/$config/ctest-summary.log"
    t2=$SECONDS
    tests=$(grep -Eo 'tests passed, [0-9]+ tests failed out of [0-9]+' "build/$config/ctest-summary.log" |
            grep -Eo '[0-9]+$' || echo "?")
    summary+=("$(printf '%-14s ok: build %4d s, %3s tests %4d s' "$config" $((t1 - t0)) "$tests" $((t2 - t1)))")
    echo "==== ${summary[-1]}"
    current=""
done

print_summary
echo "test-all: ${#CONFIGS[@]} configuration(s) passed in $((SECONDS - started)) s"
