# The sets of ./dev test. Uses functions of ./dev.
# shellcheck shell=bash
# shellcheck disable=SC2154  # ./dev sets python

# test_preset PRESET [LABEL TARGET]: runs all unit tests of the preset, or those with the label. TARGET builds these.
test_preset() {
    build "$1" ${3:+"$3"}
    say "testing $1"
    ctest --preset "$1" ${2:+-L "$2"} >&2
}

# Two files at a time. The tests mostly wait, but each scan also looks at the shells of the other file.
test_end_to_end() {
    build release
    if [ "$(id -u)" != 0 ]; then
        say "skipping the end-to-end tests: they need root for network namespaces and kernel interfaces"
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
        say "skipping the tests of 32-bit ARM: ${reason#./dev: }"
        return 0
    fi
    test_preset armhf "$@"
}

# One kernel per architecture. A boot that fails is repeated once, because emulators have defects too.
test_kernels() {
    local some=(amd64-6.1 armhf-6.1) reason
    if ! reason=$( (ensure_arm && ensure_packages kernels && kernels --fetch "${some[@]}") 2>&1); then
        say "skipping the tests on other kernels: ${reason#./dev: }"
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
        *) fail "unknown test set '$1', see ./dev help" ;;
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
