#!/usr/bin/env bash
# Runs the long tests for long. usage: scripts/soak.sh [lives N] [random-calls SECONDS] [cycles N] [--seed S]
#
#   lives N               N random lives of producers (2000 when N is left out)
#   random-calls SECONDS  eight threads call random methods for that long (600)
#   cycles N              N whole lives of a camera (1000)
#   --seed S              with this seed instead of a fresh one, to repeat a run
#
# Without a choice all three run, one after the other. Every 10 s a line tells how far a run is. Each run prints its
# seed; what it says lies in build/soak-logs/. The exit code is 0 only when every run passed.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
source "$root/scripts/lib/build.sh"
source "$root/scripts/lib/wine.sh"

usage_error() {
    echo "soak: $1; try --help" >&2
    exit 2
}

runs=()
seed=''
while [ $# -gt 0 ]; do
    case $1 in
        -h | --help) sed -n '2,/^set/{/^set/d;s/^# \{0,1\}//;p}' "${BASH_SOURCE[0]}"; exit 0 ;;
        --seed)
            [[ ${2:-} =~ ^[0-9]{1,10}$ ]] || usage_error "--seed needs a number"
            seed=$2
            shift
            ;;
        lives | random-calls | cycles)
            case $1 in lives) length=2000 ;; random-calls) length=600 ;; cycles) length=1000 ;; esac
            if [[ ${2:-} =~ ^[1-9][0-9]{0,7}$ ]]; then
                runs+=("$1 $2")
                shift
            else
                runs+=("$1 $length")
            fi
            ;;
        *) usage_error "unknown argument $1" ;;
    esac
    shift
done
[ ${#runs[@]} -gt 0 ] || runs=('lives 2000' 'random-calls 600' 'cycles 1000')

say() {
    echo "soak: $*"
}

logs=$root/build/soak-logs
bin=$root/build/windows/bin
run_pid=''

end() {
    [ -z "$run_pid" ] || kill -9 "$run_pid" 2>/dev/null || true
    wine_close
}

# last_line FILE: what the program said last, without blanks around it.
last_line() {
    tr -d '\r' <"$1" | grep -v '^[[:space:]]*$' | tail -n 1
}

# run NAME TEST VARIABLE LENGTH: one program for its length, with a line of progress every 10 s.
run() {
    local name=$1 test=$2 variable=$3 length=$4 log=$logs/$1.log started=$SECONDS next code=0
    say "$name: $variable=$length${seed:+ RAVLO_SEED=$seed}; the log is build/soak-logs/$name.log"
    env "$variable=$length" ${seed:+RAVLO_SEED=$seed} "$wine_loader" "$bin/$test.exe" \
        >"$log" 2>&1 </dev/null 9>&- &
    run_pid=$!
    next=$((SECONDS + 10))
    while kill -0 "$run_pid" 2>/dev/null; do
        sleep 0.5
        if [ $SECONDS -ge $next ]; then
            say "$name: $((SECONDS - started)) s: $(last_line "$log")"
            next=$((SECONDS + 10))
        fi
    done
    wait "$run_pid" || code=$?
    run_pid=''
    # Programs that end well by themselves have also said so.
    if [ "$code" -eq 0 ] && grep -q '^\[  PASSED  \] [1-9]' "$log"; then
        summary+=("$(printf '%-14s passed in %5d s   %s' "$name" $((SECONDS - started)) "$(seed_of "$log")")")
        return 0
    fi
    failed=1
    summary+=("$(printf '%-14s FAILED after %4d s, exit code %d   %s' "$name" $((SECONDS - started)) "$code" \
        "$(seed_of "$log")")")
    say "$name FAILED; the end of its log:"
    tr -d '\r' <"$log" | tail -n 80
}

# seed_of FILE: the seed with which the run can be repeated.
seed_of() {
    tr -d '\r' <"$1" | grep -o 'RAVLO_SEED=[0-9]*' | head -n 1 || true
}

"$root/scripts/setup.sh"
cd "$root"
mkdir -p build "$logs"
exec 9>build/.soak.lock
flock -n 9 || { echo "soak: another soak is at work in this checkout" >&2; exit 1; }

say "building (the log is build/logs/build-windows.log)"
targets=(mfsensorgroup append_log)
for entry in "${runs[@]}"; do
    case $entry in
        lives*) targets+=(ravlo_producer_lives_test) ;;
        random-calls*) targets+=(ravlo_random_calls_test) ;;
        cycles*) targets+=(ravlo_camera_cycles_test) ;;
    esac
done
for target in "${targets[@]}"; do
    build_preset windows "$target"
done

trap end EXIT
wine_open soak --standin build/windows/standin/mfsensorgroup.dll --append-log "$root/build/windows/standin/append_log.so" ||
    { echo "soak: the Wine prefix $WINEPREFIX cannot be made" >&2; exit 1; }
# What the module wrote in earlier runs only takes room.
rm -f "$WINEPREFIX/drive_c/ProgramData/Ravlo/trace.log"

summary=()
failed=0
for entry in "${runs[@]}"; do
    read -r name length <<<"$entry"
    case $name in
        lives) run lives ravlo_producer_lives_test RAVLO_LIVES "$length" ;;
        random-calls) run random-calls ravlo_random_calls_test RAVLO_SECONDS "$length" ;;
        cycles) run cycles ravlo_camera_cycles_test RAVLO_CYCLES "$length" ;;
    esac
done
echo
printf 'soak: %s\n' "${summary[@]}"
exit "$failed"
