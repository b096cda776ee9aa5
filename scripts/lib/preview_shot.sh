#!/usr/bin/env bash
# Photographs the preview window. usage: scripts/lib/preview_shot.sh [PNG]
#
# Opens rvhost --preview on a screen of its own, feeds the camera with rvfeeder's test card, waits until the window
# shows it live and writes the window's picture to PNG (default: out/demo/preview.png). What it needs must be built:
# the targets rvmediasource, rvhost, rvfeeder and mfsensorgroup of preset windows. Exit code 0 only when the picture is
# there.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
source "$root/scripts/lib/wine.sh"

shot=${1:-$root/out/demo/preview.png}
bin=$root/build/windows/bin
work=$root/build/preview
pipe='\\.\pipe\Ravlo.2'
live_badge='#168039' # behind the word LIVE
patience=40          # seconds; a cold Wine takes its time
screen_pid='' host_pid='' feeder_pid=''

say() {
    echo "preview_shot: $*" >&2
}

end() {
    local pid
    for pid in $feeder_pid $host_pid; do
        kill -9 "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
    wine_close
    if [ -n "$screen_pid" ]; then
        kill "$screen_pid" 2>/dev/null || true
        wait "$screen_pid" 2>/dev/null || true
    fi
}

# open_screen: starts a screen on a free display and prints its number.
open_screen() {
    local deadline=$((SECONDS + patience))
    : >"$work/display"
    Xvfb -displayfd 1 -screen 0 1400x860x24 -nolisten tcp >"$work/display" 2>"$work/xvfb.log" </dev/null 9>&- &
    screen_pid=$!
    until [ -s "$work/display" ]; do
        if ! kill -0 "$screen_pid" 2>/dev/null || [ $SECONDS -ge $deadline ]; then
            say "Xvfb did not start:"
            cat "$work/xvfb.log" >&2
            return 1
        fi
        sleep 0.05
    done
}

# open_prefix: like wine_open, but with a screen, which the server must know from its start.
open_prefix() {
    wine_environment preview
    DISPLAY=:$(<"$work/display")
    export DISPLAY
    wine_close
    wineserver -p </dev/null >/dev/null 2>&1 9>&-
    wine_quietly wineboot -i
    cp -f "$root/build/windows/standin/mfsensorgroup.dll" "$WINEPREFIX/drive_c/windows/system32/"
    # The signs on the title bar's buttons, where the package fonts-wine is installed.
    cp -f /usr/share/wine/fonts/marlett.ttf "$WINEPREFIX/drive_c/windows/Fonts/" 2>/dev/null || true
    # There is no window manager: Wine draws title bar and border itself when it is told so.
    wine_quietly reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /t REG_SZ /d N /f
    wine_quietly reg add 'HKCU\Software\Wine\Drivers' /v Graphics /t REG_SZ /d x11 /f
    local user
    user=$(wine_run "$bin/rvhost.exe" --print-user-sid </dev/null 2>"$work/user.log" | tr -d '\r')
    wine_quietly reg add 'HKLM\SOFTWARE\Ravlo' /v AuthorizedUserSid /t REG_SZ /d "$user" /f /reg:64
}

start_programs() {
    # Not through wine_run: the process ids must be those of the programs, which are to be killed.
    "$wine_loader" "$bin/rvhost.exe" --dll "$bin/rvmediasource.dll" --geometry 1280x720@30 --pipe "$pipe" --preview \
        </dev/null >"$work/rvhost.txt" 2>"$work/rvhost.log" 9>&- &
    host_pid=$!
    "$wine_loader" "$bin/rvfeeder.exe" --test-card --size 1280x720 --pipe "$pipe" \
        </dev/null >"$work/rvfeeder.txt" 2>"$work/rvfeeder.log" 9>&- &
    feeder_pid=$!
}

# take_shot: writes the window's picture, all that is on the black screen; fails while that is nothing.
take_shot() {
    timeout 10 import -window root "$work/screen.png" 2>/dev/null &&
        convert "$work/screen.png" -trim +repage "$work/shot.png" 2>/dev/null
}

# shows_live: whether the last picture has the badge, of which text hides a part.
shows_live() {
    local pixels
    pixels=$(convert "$work/shot.png" -fill black +opaque "$live_badge" -fill white -opaque "$live_badge" \
        -format '%[fx:int(mean*w*h)]' info:)
    [ "$pixels" -gt 1000 ]
}

wait_for_live() {
    local deadline=$((SECONDS + patience))
    until take_shot && shows_live; do
        if ! kill -0 "$host_pid" 2>/dev/null || [ $SECONDS -ge $deadline ]; then
            say "the window never showed the test card live; rvhost and rvfeeder said:"
            cat "$work/rvhost.log" "$work/rvfeeder.log" >&2
            return 1
        fi
        sleep 0.1
    done
}

for file in rvmediasource.dll rvhost.exe rvfeeder.exe; do
    [ -e "$bin/$file" ] || { say "build/windows/bin/$file is missing: build preset windows first"; exit 1; }
done
mkdir -p "$work" "$(dirname "$shot")"
trap end EXIT
open_screen
open_prefix
start_programs
wait_for_live
# The first second's frame rate and lateness say little.
sleep 3
take_shot
shows_live || { say "the window shows the test card no longer"; exit 1; }
cp -f "$work/shot.png" "$shot"
