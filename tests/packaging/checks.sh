# Checks shared by install_test.sh and deb_test.sh: the installed tools under PREFIX run, find their
# module and samples, answer --version, and have manual pages that render and list every option.
# Sourced; expects $version and a scratch folder $work.

fail() {
    echo "FAIL: $*" >&2
    exit 1
}

# check_installed PREFIX MANPAGE_DIR
check_installed() {
    prefix=$1
    man_dir=$2
    samples=$prefix/share/brivane/samples
    for tool in brivane-render brivane-host; do
        [ "$("$prefix/bin/$tool" --version)" = "$tool $version" ] || fail "$tool --version is not '$tool $version'"
    done

    "$prefix/bin/brivane-render" "$samples/focus.png" --preset "$samples/focus.ini" -o "$work/render.png" -q ||
        fail "the installed brivane-render did not render a sample"
    [ -s "$work/render.png" ] || fail "brivane-render wrote no picture"

    # The host must load the installed module, not the one in the build folder.
    XDG_DATA_HOME=$work/data LD_DEBUG=files \
        "$prefix/bin/brivane-host" -i "$samples/speed.png" -o "$work/host.png" -q 2> "$work/host.log" ||
        { cat "$work/host.log" >&2; fail "the installed brivane-host failed"; }
    grep -q "file=$prefix/.*brivane.so" "$work/host.log" ||
        fail "brivane-host did not load the module installed under $prefix"
    grep -q "warning" "$work/host.log" && { grep warning "$work/host.log" >&2; fail "brivane-host warned"; }
    [ -s "$work/host.png" ] || fail "brivane-host wrote no layer"

    for tool in brivane-render brivane-host; do
        page=$man_dir/$tool.1
        [ -f "$page" ] || page=$page.gz
        LC_ALL=C MANWIDTH=200 MANPAGER=cat man -l "$page" > "$work/$tool.txt" 2> "$work/man.log" ||
            fail "man -l $page failed"
        [ -s "$work/man.log" ] && { cat "$work/man.log" >&2; fail "man -l $page complained"; }
        # The page is made from --help; every option that --help names must be in it.
        for option in $("$prefix/bin/$tool" --help | grep -o -- '--[a-z0-9][a-z0-9-]*' | sort -u); do
            grep -q -- "$option" "$work/$tool.txt" || fail "the manual page of $tool lacks $option"
        done
    done
}
