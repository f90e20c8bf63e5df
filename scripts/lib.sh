# Shared by the scripts in this folder: messages, and where things stand.
# Sourced, never run.

set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cache=${XDG_CACHE_HOME:-${HOME:?HOME is not set}/.cache}/velto-audio-handler

say() { printf '%s: %s\n' "${0##*/}" "$*"; }

# die REASON [REMEDY]
die() {
    printf '%s: error: %s\n' "${0##*/}" "$1" >&2
    if [ $# -gt 1 ]; then
        printf '%s\n' "$2" | sed 's/^/    /' >&2
    fi
    exit 1
}

# run_logged LOG WHAT COMMAND...: quiet when it succeeds, the log's end when it fails.
run_logged() {
    local log=$1 what=$2
    shift 2
    if ! "$@" >"$log" 2>&1; then
        tail -n 30 "$log" | sed 's/^/    | /' >&2
        die "$what failed" "The lines above end its log: $log"
    fi
}
