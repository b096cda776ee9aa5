# The trace log of one run, wherever the module chose to keep it. Source it after wine.sh; it needs $bin.
#
#   trace_begin         remember how long the logs are that already exist
#   trace_collect FILE  write the lines that came since to FILE; fails when the module wrote none

declare -A trace_offsets

trace_begin() {
    local path
    for path in 'C:\ProgramData\Ravlo\trace.log' "$(windows_path "$bin")\\trace.log" 'C:\Windows\Temp\ravlo-trace.log'; do
        trace_offsets[$path]=$(stat -c %s "$(trace_unix_path "$path")" 2>/dev/null || echo 0)
    done
}

trace_collect() {
    local path said new=$1
    for path in "${!trace_offsets[@]}"; do
        trace_since "$path" "${trace_offsets[$path]}" >"$new"
        # The log says itself where it is; a file that merely lies in one of the places is not believed.
        said=$(tr -d '\r' <"$new" | sed -n 's/.* TRACEPATH candidate=[1-3] path=\(.*\) cand1=.*/\1/p' | tail -n 1)
        if [ -n "$said" ] && [ -n "${trace_offsets[$said]:-}" ]; then
            trace_since "$said" "${trace_offsets[$said]}" >"$new"
            return 0
        fi
    done
    return 1
}

trace_since() {
    local file
    file=$(trace_unix_path "$1")
    [ ! -e "$file" ] || tail -c +$(($2 + 1)) "$file"
}

# Wine's drive C lies in the prefix, with the folders' names in the case in which Windows spells them or another.
trace_unix_path() {
    local slashed=${1//\\//}
    case $slashed in
        Z:*) echo "${slashed#Z:}" ;;
        C:/Windows/Temp/*) echo "$WINEPREFIX/drive_c/windows/temp/${slashed##*/}" ;;
        C:*) echo "$WINEPREFIX/drive_c/${slashed#C:/}" ;;
    esac
}
