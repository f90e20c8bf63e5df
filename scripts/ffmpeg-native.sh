# Builds FFmpeg 5.1 for this machine into the cache, from the same source package as FFmpeg for Windows. The native presets
# need it where the distribution has another version, as Debian 13 has.
# Sourced by scripts/setup after ffmpeg-for-windows.sh.
#
# A finished build is the folder ffmpeg-native-VERSION-HASH, where VERSION is that of Debian's source package, and HASH that of
# the configure line. It is created under a temporary name and then renamed, so it is complete if it exists. CMake uses the link
# ffmpeg-native next to it.

# The same parts as on Windows.
ffmpeg_native_options=(
    --enable-shared --disable-static --enable-rpath
    --disable-programs --disable-doc --disable-network --disable-autodetect
    --disable-everything --disable-avdevice --disable-avfilter --disable-swscale --disable-postproc
    --enable-decoder=aac --enable-encoder=aac --enable-parser=aac
    --enable-demuxer=aac,mov --enable-muxer=adts,ipod,mp4
    --enable-bsf=aac_adtstoasc --enable-protocol=file
)

# distribution_has_ffmpeg: succeeds if the distribution's libraries have the ABI of FFmpeg 5.1.
distribution_has_ffmpeg() {
    PKG_CONFIG_PATH='' pkg-config --exists 'libavcodec >= 59' 'libavcodec < 60' 2>/dev/null
}

build_native_ffmpeg() {
    local work version hash target
    hash=$(printf '%s\n' "${ffmpeg_native_options[@]}" | sha256sum | cut -c1-12)
    exec 7>"$cache/native-lock"
    flock 7
    version=$(basename "$cache/ffmpeg-windows/source"/ffmpeg_*.dsc .dsc)
    version=${version#ffmpeg_}
    target=$cache/ffmpeg-native-$version-$hash
    if [ ! -d "$target" ]; then
        work=$(mktemp -d "$cache/build.XXXXXX")
        # shellcheck disable=SC2064  # expands the folder's name now
        trap "rm -rf '$work'" EXIT
        say "building FFmpeg $version for this machine (about two minutes)"
        run_logged "$work/log" "unpacking FFmpeg" \
            dpkg-source --no-check -x "$cache/ffmpeg-windows/source"/ffmpeg_*.dsc "$work/tree"
        mkdir "$work/build"
        cd "$work/build"
        # The libraries contain the folder that they are installed in.
        run_logged "$work/log" "configuring FFmpeg" ../tree/configure --prefix="$target" "${ffmpeg_native_options[@]}"
        run_logged "$work/log" "compiling FFmpeg" make -j"$(nproc)"
        run_logged "$work/log" "installing FFmpeg" make install DESTDIR="$work/root"
        cd "$repo"
        mv -T "$work/root$target" "$target"
        rm -rf "$work"
        trap - EXIT
    fi
    ln -sfnT "$target" "$cache/ffmpeg-native"
}
