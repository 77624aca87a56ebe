#!/usr/bin/env bash
# Installs what is missing, then configures, builds and tests every
# configuration in turn; stops at the first failure.
#   bash scripts/test-all.sh              all configurations
#   bash scripts/test-all.sh gcc arm64    only these
# Besides the CMake presets: "fuzz" also runs each libFuzzer target for
# TAVIKLIMITER_FUZZ_SECONDS (60) from the committed corpus, "valgrind"
# runs the end-to-end tests of the gcc build under memcheck, and "lone"
# clones the committed project alone into an empty directory and runs the
# main job and the build checks there.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

CONFIGS=(gcc clang sanitize arm64 scalar android-arm64 lone check arm64-check x86-baseline fuzz tsan valgrind)
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

# The fuzzers of the fuzz build, both at once (one core each), each for
# TAVIKLIMITER_FUZZ_SECONDS from the committed corpus; new inputs go to
# build/fuzz/corpus-run, a crash or a failed check to build/fuzz/artifacts.
run_fuzzers() {
    local seconds=${TAVIKLIMITER_FUZZ_SECONDS:-60} f pids=() failed=0
    mkdir -p build/fuzz/artifacts
    for f in api_sequence kernel; do
        mkdir -p "build/fuzz/corpus-run/$f"
        "build/fuzz/fuzz/${f}_fuzzer" -max_total_time="$seconds" -timeout=10 -print_final_stats=1 \
            -artifact_prefix="build/fuzz/artifacts/$f-" "build/fuzz/corpus-run/$f" "fuzz/corpus/$f" \
            >"build/fuzz/$f.log" 2>&1 &
        pids+=($!)
    done
    for f in 0 1; do
        wait "${pids[$f]}" || failed=1
    done
    for f in api_sequence kernel; do
        echo "$f: $(grep -E '^#[0-9]+[[:space:]]+DONE' "build/fuzz/$f.log" | tail -1)"
    done
    if ((failed)); then
        tail -n 40 build/fuzz/*.log
        return 1
    fi
}

# memcheck over the end-to-end tests of the gcc build: any invalid access or
# uninitialised value that decides anything fails the run.
run_valgrind() {
    local t
    cmake --preset gcc >/dev/null
    cmake --build --preset gcc -j2
    for t in api_test stream_test; do
        echo "== valgrind $t"
        (cd tests && valgrind --tool=memcheck --error-exitcode=1 --track-origins=yes --quiet \
            "../build/gcc/tests/$t" --gtest_brief=1)
    done
}

# The project as a user gets it: a clone of the committed tree with nothing
# beside it. The main job runs there and the build checks pass; the Android
# library built there, in another directory, has the same bytes as the one
# built here (when this run built one).
run_lone_clone() {
    local top dir android=build/android-arm64/libtaviklimiter_vendor.so
    top=$(mktemp -d)
    dir="$top/taviklimiter"
    git clone --quiet --no-hardlinks . "$dir"
    (
        cd "$dir"
        bash scripts/main.sh
        cmake --build --preset gcc -j2 --target taviklimiter_vendor
        ctest --test-dir build/gcc -R '^check_' --output-on-failure
    )
    if [[ -f "$android" ]]; then
        cmake --build --preset android-arm64 -j2  # up to date with this tree, when run alone
        (cd "$dir" && cmake --preset android-arm64 >/dev/null && cmake --build --preset android-arm64 -j2)
        cmp "$android" "$dir/$android"
        echo "lone: the Android library built in $dir has the same bytes as $android"
    fi
    rm -rf "$top"
}

# The Android library itself against the arm64 scalar reference: the arm64
# build's differential program, a glibc process under qemu, loads it (with a
# stand-in for its libc.so) and runs the random streams and the music.
run_android_differential() {
    local dir=build/arm64/tests/differential
    [[ -f build/arm64/build.ninja ]] || cmake --preset arm64
    cmake --build --preset arm64 -j2 --target taviklimiter_differential taviklimiter_scalar_reference
    sh tests/differential/differential.sh /usr/share/games/frozen-bubble/snd/frozen-mainzik-1p.ogg \
        build/android-arm64/music.f32 qemu-aarch64 -L /usr/aarch64-linux-gnu "$dir/taviklimiter_differential" \
        build/android-arm64/libtaviklimiter_vendor.so "$dir/libtaviklimiter_scalar_reference.so" seconds=240
}

for config in "${CONFIGS[@]}"; do
    t0=$SECONDS
    # The steps that are no CMake preset: a function each, and what they check.
    case "$config" in
        lone) step=(run_lone_clone clone "a lone clone") ;;
        valgrind) step=(run_valgrind memcheck memcheck) ;;
        *) step=() ;;
    esac
    if ((${#step[@]})); then
        current="$config:${step[1]}"
        "${step[0]}"
        summary+=("$(printf '%-14s ok: %s %4d s' "$config" "${step[2]}" $((SECONDS - t0)))")
        echo "==== ${summary[-1]}"
        current=""
        continue
    fi
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
    if [[ "$config" == fuzz ]]; then
        current="fuzz:fuzzing"
        run_fuzzers
    fi
    if [[ "$config" == android-arm64 ]]; then
        current="android-arm64:differential"
        run_android_differential
    fi
    t2=$SECONDS
    tests=$(grep -Eo 'tests passed, [0-9]+ tests failed out of [0-9]+' "build/$config/ctest-summary.log" |
            grep -Eo '[0-9]+$' || echo "?")
    summary+=("$(printf '%-14s ok: build %4d s, %3s tests %4d s' "$config" $((t1 - t0)) "$tests" $((t2 - t1)))")
    echo "==== ${summary[-1]}"
    current=""
done

print_summary
echo "test-all: ${#CONFIGS[@]} configuration(s) passed in $((SECONDS - started)) s"
