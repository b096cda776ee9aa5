# Shell functions to run suites and count what they say. Source it after wine.sh; it needs $root.
#
# A suite is one GoogleTest program, or a gate: a command that passes or fails as a whole and counts as one test.

suites_logs=$root/build/test-logs
suites_tally=$suites_logs/tally
suites_wine_open=''

suites_begin() {
    suites_filter=$1
    rm -rf "$suites_logs"
    mkdir -p "$suites_logs"
    : >"$suites_tally"
}

suites_announce() {
    printf '%s\n' "$*"
}

# suite_log NAME: the file that keeps this suite's output.
suite_log() {
    printf '%s/%s.log' "$suites_logs" "$(printf '%s' "$1" | tr -c 'A-Za-z0-9_\n' '-')"
}

suite_is_named() {
    [[ $1 == *"$suites_filter"* ]]
}

# gate NAME COMMAND...: runs only when the filter names it.
gate() {
    local name=$1 log started tenths
    shift
    suite_is_named "$name" || return 0
    log=$(suite_log "$name")
    started=$(date +%s%N)
    if "$@" >"$log" 2>&1 </dev/null; then
        set -- 1 0
    else
        set -- 0 1
    fi
    tenths=$((($(date +%s%N) - started) / 100000000))
    printf '%-38s%5d passed %3d failed %7s s\n' "$name" "$1" "$2" "$((tenths / 10)).$((tenths % 10))"
    [ "$2" -eq 0 ] || { printf -- '---- %s:\n' "$name"; tail -n 150 "$log"; }
    printf '%d %d\n' "$1" "$2" >>"$suites_tally"
}

# spare COMMAND...: in the background, one after the other, on processor time that nothing else wants: the suites under
# Wine spend most of theirs waiting. What they print comes when spare_gates_await is called.
spare_gates=()
spare_gates_pid=''

spare() {
    spare_gates+=("$(printf '%q ' "$@")")
}

# spare_gate NAME COMMAND...: as gate, on spare time.
spare_gate() {
    ! suite_is_named "$1" || spare gate "$@"
}

spare_gates_begin() {
    [ ${#spare_gates[@]} -gt 0 ] || return 0
    set -m # a process group of its own, so that all of it can be ended
    (
        # The least that the system offers, inherited by everything that a gate starts.
        chrt --idle --pid 0 "$BASHPID" 2>/dev/null || renice -n 19 -p "$BASHPID" >/dev/null 2>&1 || true
        for spare in "${spare_gates[@]}"; do eval "$spare"; done
    ) >"$suites_logs/spare-gates.txt" 2>&1 </dev/null 9>&- &
    spare_gates_pid=$!
    set +m
}

spare_gates_await() {
    [ -n "$spare_gates_pid" ] || return 0
    wait "$spare_gates_pid" || true
    spare_gates_pid=''
    cat "$suites_logs/spare-gates.txt"
}

# A run that is broken off must not leave its gates at work.
spare_gates_end() {
    [ -z "$spare_gates_pid" ] || kill -- "-$spare_gates_pid" 2>/dev/null || true
    spare_gates_pid=''
}

# run_suite NAME OPTIONS-AND-COMMAND...: see run_suite.py.
run_suite() {
    local name=$1 test_filter=$suites_filter
    shift
    suite_is_named "$name" && test_filter=''
    "$root/scripts/lib/run_suite.py" --name "$name" --log "$(suite_log "$name")" --tally "$suites_tally" \
        --filter="$test_filter" "$@" 9>&- || true
}

# build_step PRESET: builds it, or fails as one test; what depends on it fails then too.
build_step() {
    local started=$SECONDS
    if build_preset "$1"; then
        suites_announce "built $1 in $((SECONDS - started)) s"
    else
        echo "0 1" >>"$suites_tally"
        return 1
    fi
}

# native_suites PRESET NAME: builds the preset and runs its portable tests.
native_suites() {
    build_step "$1" || return 0
    native_suite "unit ($2)" "build/$1/bin/ravlo_unit_tests"
    native_suite "tools ($2)" "build/$1/bin/ravlo_tool_tests"
}

native_suite() {
    run_suite "$1" --timeout "${RAVLO_SUITE_TIMEOUT:-240}" -- "$root/scripts/lib/fixed_addresses.sh" "$2"
}

# wine_suite NAME PROGRAM [SECONDS]
wine_suite() {
    run_suite "$1" --timeout "${RAVLO_SUITE_TIMEOUT:-${3:-120}}" --wine -- "$wine_loader" "$2"
}

# windows_suites PRESET FOLDER...: the portable tests under Wine, then every Windows test program of these folders of
# tests/, one after the other: they share pipe names, registry keys and the log.
windows_suites() {
    local bin=build/$1/bin folder program name seconds
    suites_wine_open=1
    if ! wine_open test --standin "build/$1/standin/mfsensorgroup.dll" --append-log "$root/build/$1/standin/append_log.so"; then
        echo "the Wine prefix $WINEPREFIX cannot be made"
        suites_abort
    fi
    local programs=build/$1/test-programs.txt
    for folder in unit "${@:2}"; do
        seconds=120
        # Their own watchdogs, which say what stands where, have to come first on a busy machine.
        [ "$folder" != soak ] || seconds=300
        for program in $(awk -v folder="$folder" '$1 == folder { print $2 }' "$programs"); do
            name=${program#ravlo_}
            case $program in *_tests) name="${name%_tests} (wine)" ;; esac
            wine_suite "$name" "$bin/$program.exe" "$seconds"
        done
    done
    wine_close_if_open
}

wine_close_if_open() {
    [ -z "$suites_wine_open" ] || wine_close
    suites_wine_open=''
}

# Ends the run where nothing can be tested any more; what cannot be tried has failed.
suites_abort() {
    echo "0 1" >>"$suites_tally"
    suites_end
}

# The last line, and the exit code: failed tests, or none at all, are a failure.
suites_end() {
    local passed failed
    read -r passed failed < <(awk '{ p += $1; f += $2 } END { print p + 0, f + 0 }' "$suites_tally")
    [ $((passed + failed)) -gt 0 ] || echo "no test matches '$suites_filter'"
    echo "$passed passed, $failed failed"
    [ "$failed" -eq 0 ] && [ "$passed" -gt 0 ] && exit 0
    exit 1
}
