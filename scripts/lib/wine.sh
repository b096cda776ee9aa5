# Shell functions for Wine prefixes under build/prefixes/. Source it; it needs $root, the top of the checkout.
#
#   wine_open NAME [--standin DLL] [--append-log SO]   make or refresh the prefix and start its server
#   wine_run PROGRAM [ARGUMENT...]                      run a program in the open prefix
#   wine_close                                          end the server of the open prefix, and no other
#
# Everything that Wine would put into the user's home or runtime folder stays under build/ as well.

wine_root=${root:?the top of the checkout}/build/prefixes
wine_ready=.ravlo-ready

wine_loader=$root/scripts/lib/wine_loader.sh

wine_environment() {
    export WINEPREFIX=$wine_root/$1 WINEARCH=win64
    export WINEDEBUG=${RAVLO_WINEDEBUG:--all}
    # No debugger dumps a crash, nothing is entered into the desktop's menus.
    export WINEDLLOVERRIDES='winedbg.exe=d;winemenubuilder.exe=d;mscoree=d;mshtml=d;mfsensorgroup=n,b'
    export HOME=$wine_root/home XDG_RUNTIME_DIR=$wine_root/run
    unset DISPLAY WAYLAND_DISPLAY XDG_CONFIG_HOME XDG_DATA_HOME XDG_CACHE_HOME
    mkdir -p "$WINEPREFIX" "$HOME" "$XDG_RUNTIME_DIR"
    chmod 700 "$XDG_RUNTIME_DIR"
}

wine_open() {
    local name=$1 standin='' preload=''
    shift
    while [ $# -gt 0 ]; do
        case $1 in
            --standin) standin=$2; shift 2 ;;
            --append-log) preload=$2; shift 2 ;;
            *) echo "wine_open: unknown argument $1" >&2; return 2 ;;
        esac
    done
    wine_environment "$name"

    # A server left by a run that was killed would keep its own preloading; begin with a fresh one.
    wine_close
    # Started on its own and cut off from our output: whatever a first Wine call starts keeps that call's standard
    # output open, and a reader at the other end would wait for ever.
    LD_PRELOAD=$preload wineserver -p </dev/null >/dev/null 2>&1 9>&- || return 1

    if [ ! -e "$WINEPREFIX/$wine_ready" ]; then
        wine_quietly wineboot -i &&
            wine_quietly winecfg -v win10 &&
            wine_quietly reg add 'HKLM\Software\Microsoft\Windows NT\CurrentVersion' \
                /v CurrentBuildNumber /t REG_SZ /d 22631 /f || return 1
        touch "$WINEPREFIX/$wine_ready"
    else
        wine_quietly wineboot || return 1
    fi
    # Windows open without a screen, and the first of them does not look for one for ten seconds.
    wine_quietly reg add 'HKCU\Software\Wine\Drivers' /v Graphics /t REG_SZ /d null /f || return 1

    local system32=$WINEPREFIX/drive_c/windows/system32
    if [ -n "$standin" ]; then
        cp -f "$standin" "$system32/mfsensorgroup.dll"
    else
        rm -f "$system32/mfsensorgroup.dll"
    fi
}

wine_quietly() {
    "$wine_loader" "$@" </dev/null >/dev/null 2>&1 9>&-
}

wine_run() {
    "$wine_loader" "$@" 9>&-
}

wine_close() {
    wineserver -k </dev/null >/dev/null 2>&1 9>&- || true
    wineserver -w </dev/null >/dev/null 2>&1 9>&- || true
}
