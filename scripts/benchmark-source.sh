# Fetches the source of Google Benchmark from Debian into the cache.
# Sourced by scripts/setup after ffmpeg-for-windows.sh, whose fetch_source it uses.
#
# The folder is created under a temporary name and then renamed, so it is complete if it exists. bench/ compiles
# the source for Windows, because Debian's binary package is for Linux.

benchmark_source=$cache/benchmark-source

fetch_benchmark() {
    local work
    mkdir -p "$cache"
    exec 8>"$cache/benchmark-lock"
    flock 8
    if [ -f "$benchmark_source/CMakeLists.txt" ]; then
        return
    fi
    work=$(mktemp -d "$cache/build.XXXXXX")
    # shellcheck disable=SC2064  # expands the folder's name now
    trap "rm -rf '$work'" EXIT
    say "fetching the source of Google Benchmark"
    fetch_source benchmark "$work"
    rm -rf "$benchmark_source"
    mv -T "$work/tree" "$benchmark_source"
    rm -rf "$work"
    trap - EXIT
}
