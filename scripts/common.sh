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
