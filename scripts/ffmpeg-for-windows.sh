# Builds FFmpeg 5.1 for Windows from Debian 12's source package into the cache, also on Debian 13.
# Sourced by scripts/setup after lib.sh.
#
# The package manager verifies the source package by the key of Debian's archive. Its checksums are also compared with
# ffmpeg-source.sha256: Debian publishes a new package for each security update of FFmpeg.
#
# A finished build is the folder ffmpeg-VERSION-HASH, where HASH is that of the configure line. It contains bin/,
# include/, lib/ and a stamp with the checksum of every file; symbols/ with the debug information, the PDB file and the
# linker's map of each DLL; source/ with Debian's source package; a copy of ffmpeg-source.sha256. The folder is created under
# a temporary name and then renamed: if it does not match its stamp, it was damaged later and is rebuilt. It is also rebuilt
# from another source package when the checksums in ffmpeg-source.sha256 change. CMake uses the link ffmpeg-windows next to
# it by default.
#
# The DLLs depend on the source package, the configure line and the compiler only: the paths of the build are replaced,
# and the linker writes no time.

# Only the parts that the module and velto-host need: AAC in its usual containers, and the resampler. Win32
# threads, and a static winpthread for two clock functions, keep libwinpthread-1.dll out of the import tables.
ffmpeg_options=(
    --prefix=/ffmpeg
    --target-os=mingw32 --arch=x86_64 --enable-cross-compile
    --cross-prefix=x86_64-w64-mingw32- --cc=x86_64-w64-mingw32-gcc-posix
    --enable-shared --disable-static --disable-stripping
    --disable-programs --disable-doc --disable-network --disable-autodetect
    --disable-pthreads --enable-w32threads
    --disable-everything --disable-avdevice --disable-avfilter --disable-swscale
    --disable-postproc
    --enable-decoder=aac --enable-encoder=aac --enable-parser=aac
    --enable-demuxer=aac,mov --enable-muxer=adts,ipod,mp4
    --enable-bsf=aac_adtstoasc --enable-protocol=file
    --extra-ldflags='-static-libgcc -Wl,--no-insert-timestamp,--build-id,--pdb=' --extra-libs=-Wl,-Bstatic,-lwinpthread,-Bdynamic
)

ffmpeg_dlls=(avcodec-59.dll avformat-59.dll avutil-57.dll swresample-4.dll)

ffmpeg_hash() { printf '%s\n' "${ffmpeg_options[@]}" | sha256sum | cut -c1-12; }

# ffmpeg_complete FOLDER: succeeds if all files match the stamp, and the four DLLs are among them.
ffmpeg_complete() {
    local dll
    [ -f "$1/stamp" ] || return 1
    for dll in "${ffmpeg_dlls[@]}"; do
        grep -q " ./bin/$dll\$" "$1/stamp" || return 1
    done
    (cd "$1" && sha256sum --quiet --strict --check stamp) >/dev/null 2>&1
}

ffmpeg_pin=$repo/scripts/ffmpeg-source.sha256

# ffmpeg_source_pinned FOLDER: succeeds if FOLDER has the source package with the pinned checksums.
ffmpeg_source_pinned() { (cd "$1" && sha256sum --quiet --strict --check "$ffmpeg_pin") >/dev/null 2>&1; }

# Prints the newest complete build with this configure line, or fails. A build from another source package than the pinned
# one counts if the archive had it while these checksums were pinned.
ffmpeg_cached() {
    local folder
    while IFS= read -r folder; do
        if ffmpeg_complete "$folder" &&
            { ffmpeg_source_pinned "$folder/source" || cmp -s "$folder/ffmpeg-source.sha256" "$ffmpeg_pin"; }; then
            printf '%s\n' "$folder"
            return 0
        fi
    done < <(find "$cache" -maxdepth 1 -type d -name "ffmpeg-5.1*-$(ffmpeg_hash)" 2>/dev/null | sort -rV)
    return 1
}

ffmpeg_link() { ln -sfnT "$1" "$cache/ffmpeg-windows"; }

# private_source_list FOLDER [APT]: writes the machine's package sources into FOLDER, changed to Debian 12's sources
# (bookworm). Leaves out suites other than those of Debian 12 and 13 (trixie), and discs, which have no source packages.
private_source_list() {
    local file out=$1 apt=${2:-/etc/apt}
    mkdir -p "$out"
    for file in "$apt"/sources.list.d/*.sources; do
        [ -f "$file" ] || continue
        # An empty RS makes awk read one stanza at a time.
        awk -v RS= -v ORS='\n\n' '/(^|\n)Suites:[^\n]*(bookworm|trixie)/ && !/(^|\n)URIs: *cdrom/' "$file" |
            sed -E 's/^Types:.*/Types: deb-src/; /^Suites:/s/\<trixie\>/bookworm/g' >"$out/$(basename "$file")"
    done
    for file in "$apt"/sources.list "$apt"/sources.list.d/*.list; do
        [ -f "$file" ] || continue
        sed -nE '/[[:space:]]cdrom:/d; s/\<trixie\>/bookworm/; s/^[[:space:]]*deb(-src)?([[:space:]].*\<bookworm.*)$/deb-src\2/p' \
            "$file" | sort -u >"$out/$(basename "$file" .list)-lines.list"
    done
    find "$out" -size 0 -delete
    if [ -z "$(ls "$out")" ]; then
        die "no package source of Debian 12 or 13 was found under $apt" \
            "Add a line for your Debian mirror to $apt/sources.list and run scripts/setup again:
deb MIRROR bookworm main"
    fi
}

# fetch_source PACKAGE FOLDER: downloads a Debian source package and unpacks it to FOLDER/tree. Needs no root,
# and does not change the machine's package lists.
fetch_source() {
    local package=$1 folder=$2
    mkdir -p "$folder/lists/partial" "$folder/archives/partial" "$folder/download"
    private_source_list "$folder/parts"
    local options=(
        -oDir::Etc::SourceList=/dev/null -oDir::Etc::SourceParts="$folder/parts"
        -oDir::State::Lists="$folder/lists" -oDir::Cache="$folder/archives"
        -oAPT::Sandbox::User= -oAcquire::Retries=3
    )
    # Continues without a list that cannot be downloaded, for example of an archive without sources.
    apt-get "${options[@]}" update >"$folder/log" 2>&1 || true
    if ! (cd "$folder/download" && apt-get "${options[@]}" source --download-only "$package") >>"$folder/log" 2>&1; then
        tail -n 12 "$folder/log" | sed 's/^/    | /' >&2
        die "the source package $package could not be downloaded" \
            "Check that this machine reaches the archive named under /etc/apt, then run scripts/setup again."
    fi
    run_logged "$folder/log" "unpacking $package" \
        dpkg-source --no-check -x "$folder/download"/"$package"_*.dsc "$folder/tree"
}

# fetch_ffmpeg_source FOLDER: as fetch_source. Another package than the pinned one is used, too, because the archive keeps
# the newest only; scripts/package refuses it.
fetch_ffmpeg_source() {
    say "fetching the source of FFmpeg"
    fetch_source ffmpeg "$1"
    if ! ffmpeg_source_pinned "$1/download"; then
        say "warning: the archive's source package of FFmpeg is not the one that this commit was tested with:" >&2
        printf '    tested:  %s\n    fetched: %s\n' "$(sed -n 's/.*  \(.*\)\.dsc$/\1/p' "$ffmpeg_pin")" \
            "$(basename "$1"/download/*.dsc .dsc)" >&2
        printf '    After the tests have passed with it, write its checksums into scripts/ffmpeg-source.sha256.\n' >&2
    fi
}

# split_ffmpeg_symbols FOLDER: moves the debug information of the DLLs in FOLDER/out/bin to FOLDER/out/symbols.
split_ffmpeg_symbols() {
    local dll tool=x86_64-w64-mingw32
    for dll in "${ffmpeg_dlls[@]}"; do
        cp "$1"/build/lib"${dll%-*}/$dll.map" "$1/out/symbols/"
        cp "$1/build/${dll%.dll}.pdb" "$1/out/symbols/" # the linker writes it into the current folder
        (
            cd "$1/out/symbols"
            # Without --preserve-dates, these tools write the time into the DLL.
            $tool-objcopy --preserve-dates --only-keep-debug "../bin/$dll" "$dll.debug"
            $tool-strip --preserve-dates --strip-unneeded "../bin/$dll"
            $tool-objcopy --preserve-dates --add-gnu-debuglink="$dll.debug" "../bin/$dll"
        )
    done
}

build_ffmpeg() {
    local work version target
    mkdir -p "$cache"
    # One build at a time. A second script waits here, and then finds the first one's build.
    exec 9>"$cache/lock"
    flock 9
    if target=$(ffmpeg_cached); then
        ffmpeg_link "$target"
        return
    fi
    work=$(mktemp -d "$cache/build.XXXXXX")
    # shellcheck disable=SC2064  # expands the folder's name now
    trap "rm -rf '$work'" EXIT

    fetch_ffmpeg_source "$work"
    version=$(cat "$work/tree/RELEASE")
    case $version in
        5.1*) ;;
        *) die "the source package has FFmpeg $version; the module needs 5.1" \
            "Use another build: scripts/build -DVELTO_FFMPEG_ROOT=<folder>" ;;
    esac

    target=$cache/ffmpeg-$version-$(ffmpeg_hash)
    if [ -d "$target" ]; then
        say "the cached FFmpeg is damaged, or of another source package; building it again"
    fi
    say "configuring FFmpeg $version for Windows (about half a minute)"
    mkdir "$work/build"
    cd "$work/build"
    # CFLAGS is not a part of the configure line, which the DLLs contain.
    run_logged "$work/log" "configuring FFmpeg" \
        env CFLAGS="-ffile-prefix-map=$work=/ffmpeg-$version" ../tree/configure "${ffmpeg_options[@]}"
    say "compiling FFmpeg (about a minute)"
    # shellcheck disable=SC2016  # make expands the names
    run_logged "$work/log" "compiling FFmpeg" make -j"$(nproc)" 'LDSOFLAGS=-Wl,-Map=$(SUBDIR)$(SLIBNAME_WITH_MAJOR).map'
    run_logged "$work/log" "installing FFmpeg" make install DESTDIR="$work/root"
    cd "$repo"
    mv "$work/root/ffmpeg" "$work/out"

    mkdir -p "$work/out/licenses" "$work/out/source" "$work/out/symbols"
    cp "$work/tree"/COPYING.LGPLv2.1 "$work/tree"/LICENSE.md "$work/tree"/debian/copyright "$work/out/licenses/"
    cp "$work/download"/* "$work/out/source/"
    cp "$ffmpeg_pin" "$work/out/ffmpeg-source.sha256"
    split_ffmpeg_symbols "$work"
    printf '%s\n' "${ffmpeg_options[@]}" >"$work/out/configure-options"
    (cd "$work/out" && find . -type f ! -name stamp -print0 | sort -z | xargs -0 sha256sum >"$work/stamp")
    mv "$work/stamp" "$work/out/stamp"
    ffmpeg_complete "$work/out" || die "FFmpeg was built, but one of its four DLLs is missing"
    ! x86_64-w64-mingw32-objdump -p "$work/out/bin"/*.dll | grep 'DLL Name: lib' ||
        die "FFmpeg was built, but its DLLs need the compiler's run-time DLLs"
    rm -rf "$target"
    mv -T "$work/out" "$target"
    ffmpeg_link "$target"
    rm -rf "$work"
    trap - EXIT
    say "FFmpeg $version for Windows is in $target"
}
