# shellcheck shell=bash
# Shell functions the scripts share. Sourced, not run: . "$(dirname "$0")/common.sh"

# Polls every 50 ms until the command that follows succeeds, for at most $1 seconds; the command's
# output is dropped. Returns 1 when the time is up.
wait_for() {
    local limit=$1 i
    shift
    for ((i = 0; i < limit * 20; i++)); do
        "$@" > /dev/null 2>&1 && return 0
        sleep 0.05
    done
    return 1
}

# choose_preset QT [SANITIZER [BUILD-TYPE]]: the CMake preset of CMakePresets.json that builds with
# Qt QT (5 or 6) and the sanitizer (address, thread or none), in $preset; its build folder, relative
# to the top of the tree, in $preset_dir; and in the array $preset_args what is set on top of it.
# A build type is a preset of its own only where CMakePresets.json has one (RelWithDebInfo with
# Qt 6 and no sanitizer); any other is set on top. Returns 1, and sets nothing, for a Qt or a
# sanitizer that no preset has: the caller says so in its own words.
# shellcheck disable=SC2034  # preset_args and preset_dir are the caller's
choose_preset() {
    local qt=$1 sanitizer=${2:-} type=${3:-}
    case "$qt/$sanitizer" in
        6/) preset=default ;;
        5/) preset=qt5 ;;
        6/address | 6/thread) preset=$sanitizer ;;
        5/address | 5/thread) preset=$sanitizer-qt5 ;;
        *) return 1 ;;
    esac
    preset_args=()
    if [ "$preset/${type:-Debug}" = default/RelWithDebInfo ]; then
        preset=relwithdebinfo
    elif [ -n "$type" ]; then
        preset_args=(-DCMAKE_BUILD_TYPE="$type")
    fi
    # The presets' binaryDir: build/ for default, build-NAME/ for every other one.
    if [ "$preset" = default ]; then preset_dir=build; else preset_dir=build-$preset; fi
}

# Clean-up that must happen however the script ends. on_exit COMMAND [ARG...] adds a command (its
# arguments taken as they are now) to those run once when the script exits, the last added first,
# so that what was started last is ended first. A clean-up command that fails stops neither the
# others nor changes the script's exit status.
on_exit_commands=()
on_exit() {
    [ ${#on_exit_commands[@]} -gt 0 ] || { trap run_on_exit EXIT; exit_on_signals; }
    on_exit_commands+=("$(printf '%q ' "$@")")
}
run_on_exit() {
    local i
    trap - EXIT
    for ((i = ${#on_exit_commands[@]} - 1; i >= 0; i--)); do
        eval "${on_exit_commands[i]}" || true
    done
}
# Bash runs no EXIT trap when a signal it has no trap for ends it: INT, TERM and HUP become exits
# with the status a shell reports for them (130, 143, 129), so that the EXIT trap runs for them too.
exit_on_signals() {
    trap 'exit 130' INT
    trap 'exit 143' TERM
    trap 'exit 129' HUP
}

# A script killed outright (KILL, as CTest's timeout sends) runs no trap. after_exit COMMAND
# [ARG...] runs the command once this script has ended, however it ended, from a watcher outside
# its process tree: setsid -f reparents it at once, so that nothing sent to the tree reaches it.
# The command may be one of the script's functions (all of them go along to the watcher). It runs
# after a normal end too, when the EXIT trap has most likely done the same: it must be harmless
# with nothing left to do.
after_exit() {
    # The functions go in the environment, not on the command line, which ps then shows short.
    # shellcheck disable=SC2016  # expanded by the watcher
    watcher_functions=$(declare -f) setsid -f bash -c 'eval "$watcher_functions"
        tail -s 0.2 --pid="$1" -f /dev/null
        shift
        "$@"' watcher $$ "$@" > /dev/null 2>&1
}
