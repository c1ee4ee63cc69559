# The sets of ./dev test, by the functions of ./dev.
# shellcheck shell=bash
# shellcheck disable=SC2154  # python is of ./dev

# test_preset PRESET [LABEL TARGET]: all unit tests of the preset, or those with the label, which the target builds.
test_preset() {
    build "$1" ${3:+"$3"}
    say "testing $1"
    ctest --preset "$1" ${2:+-L "$2"} >&2
}

# Two files side by side: they wait most of the time, but each scan also looks at the shells of the others.
test_end_to_end() {
    build release
    if [ "$(id -u)" != 0 ]; then
        say "the end-to-end tests are skipped: they need root for network namespaces and the kernel's interfaces"
        return 0
    fi
    say "testing end to end"
    PYTHONDONTWRITEBYTECODE=1 "$python" -m pytest -p no:cacheprovider -q -n 2 --dist loadfile \
        tests/e2e tests/kernels tests/tools
}

test_32bit() {
    ensure_packages 32bit
    configure_with_tests release -DORLIM_TEST_32BIT=ON
    cmake --build --preset release --target inspect32_test >&2
    ctest --preset release -R unit.inspect32 >&2
}

test_arm() {
    local reason
    if ! reason=$(ensure_arm 2>&1); then
        say "the tests of 32-bit ARM are skipped: ${reason#./dev: }"
        return 0
    fi
    test_preset armhf "$@"
}

# A kernel of each architecture. A boot that goes wrong is repeated once: emulators have faults of their own.
test_kernels() {
    local some=(amd64-6.1 armhf-6.1) reason
    if ! reason=$( (ensure_arm && ensure_packages kernels && kernels --fetch "${some[@]}") 2>&1); then
        say "the tests on other kernels are skipped: ${reason#./dev: }"
        return 0
    fi
    (kernels --attempts 2 "${some[@]}")
}

test_set() {
    case "$1" in
        release | asan) test_preset "$1" ;;
        tsan) test_preset tsan threads orlim_threads_tests ;;
        e2e) test_end_to_end ;;
        32bit) test_32bit ;;
        arm) test_arm quick orlim_quick_tests ;;
        arm-full) test_arm ;;
        kernels) test_kernels ;;
        package) package --test ;;
        *) fail "no test set '$1': see ./dev help" ;;
    esac
}

run_tests() {
    local set
    [ $# -gt 0 ] || set -- release e2e
    [ "$*" != all ] || set -- release e2e 32bit asan tsan arm kernels package
    for set in "$@"; do
        test_set "$set"
    done
    say "passed: $*"
}
