# Fetches the source of Google Benchmark, as Debian packages it, into the cache.
# Sourced by scripts/setup after ffmpeg-for-windows.sh, whose fetch_source it uses.
#
# The folder is made beside its final place and renamed, so that it is whole when
# it is there. bench/ compiles it for Windows; Debian's binary package is for Linux.

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
    # shellcheck disable=SC2064  # the folder's name as it is now
    trap "rm -rf '$work'" EXIT
    say "fetching the source of Google Benchmark"
    fetch_source benchmark "$work"
    rm -rf "$benchmark_source"
    mv -T "$work/tree" "$benchmark_source"
    rm -rf "$work"
    trap - EXIT
}
