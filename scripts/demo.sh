#!/usr/bin/env bash
# Shows the camera at work. usage: scripts/demo.sh [VIDEO]
#
# Builds the module and its programs, installs the camera in a Wine prefix of its own as a user would, and plays a story
# of about half a minute: a host pulls samples all the time while producers come, die, die halfway through a frame, send
# a wrong size and come back. VIDEO is any file that ffmpeg reads; without it ffmpeg makes a test film. Then the camera
# is offered to applications, looked at in a window, and uninstalled. Everything that comes out lies in out/demo/. The
# exit code is 0 only when every step did, and the camera showed in every phase, what it should.
set -euo pipefail
unset LC_ALL
export LC_NUMERIC=C # times have a point wherever this runs
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
source "$root/scripts/lib/build.sh"
source "$root/scripts/lib/wine.sh"
source "$root/scripts/lib/demo_story.sh"
source "$root/scripts/lib/demo_trace.sh"
source "$root/scripts/lib/demo_user.sh"

width=1280 height=720 rate=30
wrong_width=640 wrong_height=360
pipe='\\.\pipe\Ravlo.1'
out=$root/out/demo
bin=$root/build/windows/bin
video=''

case ${1:-} in
    -h | --help) sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "${BASH_SOURCE[0]}"; exit 0 ;;
    -*) echo "demo: unknown option $1; try --help" >&2; exit 2 ;;
    '') ;;
    *)
        [ -r "$1" ] || { echo "demo: cannot read the video $1" >&2; exit 2; }
        video=$(realpath "$1")
        ;;
esac

say() {
    echo "demo: $*"
}

# story_time: seconds since the camera started, with tenths.
story_time() {
    awk -v ms="$(($(now_ms) - story_start))" 'BEGIN { printf "%.1f", ms / 1000 }'
}

# phase NAME LIVE_OR_PATTERN SETTLE_MS LENGTH_MS TEXTS ACTION...: acts, then lets the camera run until the phase is over.
# The picture is judged from SETTLE_MS after the phase's begin. TEXTS must appear in the trace log, separated by "|".
phase() {
    local name=$1 expected=$2 settle=$3 length=$4 texts=$5 begin=$phase_end
    shift 5
    phase_end=$((begin + length))
    say "$(printf '%5s s' "$(story_time)")  $name (expecting $expected)"
    "$@"
    printf '%s\t%s\t%s\t%s\t%s\t%s\n' "$name" "$expected" "$begin" $((begin + settle)) "$phase_end" "$texts" \
        >>"$out/phases.tsv"
    local left=$((phase_end - $(now_ms)))
    [ "$left" -le 0 ] || sleep "$(awk -v ms="$left" 'BEGIN { print ms / 1000 }')"
}

right_producer() {
    start_producer "$1" "$width" "$height" "$(story_time)"
}

wrong_producer() {
    kill_producer
    start_producer wrong "$wrong_width" "$wrong_height" "$(story_time)"
}

right_producer_instead() {
    kill_producer
    right_producer "$1"
}

test_card() {
    start_test_card card "$width" "$height"
}

# After a producer is gone its last frame stays for up to a second; a new one needs a moment to start and connect.
play_story() {
    local connected='PIPE client connected' closed='the writer closed the pipe'
    phase 'no producer' pattern 0 3000 '' true
    phase 'test card' live 1500 4500 "$connected" test_card
    phase 'producer killed' pattern 1500 4000 "$closed" kill_producer
    phase 'dies with half a frame' pattern 0 2500 "$connected|$closed" die_with_half_a_frame
    phase 'film' live 1500 4500 "$connected" right_producer film
    phase 'wrong geometry' pattern 2000 4500 \
        "$connected|PIPE geometry mismatch: wire ${wrong_width}x$wrong_height, advertised ${width}x$height - pattern" \
        wrong_producer
    phase 'right geometry again' live 1500 4500 "$connected" right_producer_instead again
}

end() {
    stop_all_actors
    wine_close
}

"$root/scripts/setup.sh"
cd "$root"
mkdir -p build
exec 9>build/.demo.lock
flock -n 9 || { echo "demo: another demo is at work in this checkout" >&2; exit 1; }

say "building (the log is build/logs/build-windows.log)"
for target in rvmediasource rvfeeder rvhost rvsetup rvclient half_frame mfsensorgroup; do
    build_preset windows "$target"
done

say "opening the Wine prefix build/prefixes/demo"
rm -rf "$out"
mkdir -p "$out/logs"
trap end EXIT
wine_open demo --standin build/windows/standin/mfsensorgroup.dll

trace_begin
say "rvsetup install --me"
install_camera
say "rvsetup doctor, before there is a camera:"
ask_doctor doctor-installed
say "starting rvhost at ${width}x$height, $rate frames a second"

story_seconds=29
start_host "$story_seconds"
story_start=$(now_ms)
phase_end=$story_start
play_story
say "$(printf '%5s s' "$(story_time)")  the story is over"
host_code=0
say "rvsetup doctor, while the camera runs:"
ask_doctor doctor-live --pipe "$pipe"
wait_for_host || host_code=$?
stop_all_actors

trace_collect "$out/trace.log" || { echo "demo: the module has written no trace log" >&2; exit 1; }
sed 's/^/  /' "$out/host-summary.txt" | tr -d '\r'
cat "$out/logs/rvhost.log" >&2
echo
verdict=0
scripts/lib/demo_judge.py "$out/samples.csv" "$out/phases.tsv" "$out/trace.log" || verdict=1
echo
doctor_says doctor-live "^OK .*$(printf '%s' "$pipe" | sed 's/[\.]/\\&/g')" || verdict=1

say "offering a camera to applications (rvclient start --session, rvfeeder --test-card)"
offer_camera || verdict=1
say "rvsetup report, rvsetup uninstall"
as_user report rvsetup report "$(windows_path "$out/report.zip")" || verdict=1
remove_camera || verdict=1
wine_close
say "looking at the camera in a window (rvhost --preview)"
scripts/lib/preview_shot.sh "$out/preview.png" || verdict=1

say "pictures:  out/demo/contact-sheet.png (and one by one in out/demo/pictures/), out/demo/preview.png"
say "log:       out/demo/trace.log ($(wc -l <"$out/trace.log") lines); for a bug report: out/demo/report.zip"
if [ "$host_code" -ne 0 ]; then
    say "rvhost ended with $host_code"
    verdict=1
fi
if [ "$verdict" -ne 0 ]; then
    echo "what the programs said (out/demo/logs/):"
    tail -n 4 "$out"/logs/*.log | tr -d '\r'
    say "NOT everything was as expected"
    exit 1
fi
say "everything was as expected"
