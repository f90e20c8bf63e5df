# Shared by the scripts in this folder: paths, messages, starting their Python parts. Sourced, never run.

set -euo pipefail

repo=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cache=${XDG_CACHE_HOME:-${HOME:?HOME is not set}/.cache}/velto-audio-handler

say() { printf '%s: %s\n' "${0##*/}" "$*"; }

# print_help: prints the comment at the head of the script.
print_help() { sed -n '2,/^$/s/^# \{0,1\}//p' "$0"; }

# die REASON [REMEDY]
die() {
    printf '%s: error: %s\n' "${0##*/}" "$1" >&2
    if [ $# -gt 1 ]; then
        printf '%s\n' "$2" | sed 's/^/    /' >&2
    fi
    exit 1
}

# run_logged LOG WHAT COMMAND...: runs COMMAND with its output in LOG. If it fails, shows the end of LOG.
run_logged() {
    local log=$1 what=$2
    shift 2
    if ! "$@" >"$log" 2>&1; then
        tail -n 30 "$log" | sed 's/^/    | /' >&2
        die "$what failed" "The lines above end its log: $log"
    fi
}

# exec_python FILE ARGUMENT...: continues with the Python part of a measuring script. That part checks its arguments, calls
# scripts/setup and scripts/build (measuring.prepare), and measures.
exec_python() {
    local file=$1
    shift
    [ -x /usr/bin/python3 ] || "$repo/scripts/setup"
    export PYTHONDONTWRITEBYTECODE=1 PYTHONPATH="$repo/scripts:$repo/tests/system"
    exec /usr/bin/python3 "$repo/$file" "$@"
}
