#!/usr/bin/env bash
# Fuzzes the portable code with Clang's libFuzzer.
#
# usage: scripts/fuzz.sh [--seed N] MINUTES [TARGET...]
#
# MINUTES is the time for all targets together, fractions allowed; each gets its share, but at least two seconds, and
# two run side by side. TARGET is what stands before _fuzzer.cpp in tests/fuzz/; all of them by default. --seed repeats
# the run that printed N, as far as the time goes.
#
# build/fuzz/TARGET/ keeps the log, findings/ (what broke a property, hung or crashed; never emptied) and corpus/
# (inputs that reached something new; emptied by every run). Exit code: 0 no finding, 1 a finding, 2 wrong usage.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
source "$root/scripts/lib/build.sh"

usage() {
    sed -n '2,/^set -/{/^set -/d;s/^# \{0,1\}//;p}' "${BASH_SOURCE[0]}"
}

wrong() {
    echo "fuzz: $*; scripts/fuzz.sh --help says how it is called" >&2
    exit 2
}

seed=''
words=()
while [ $# -gt 0 ]; do
    case $1 in
        --help | -h)
            usage
            exit 0
            ;;
        --seed)
            seed=${2:-}
            [[ $seed =~ ^[1-9][0-9]{0,8}$ ]] || wrong "--seed takes a number from 1 to 999999999"
            shift
            ;;
        -*) wrong "unknown option $1" ;;
        *) words+=("$1") ;;
    esac
    shift
done
[ ${#words[@]} -gt 0 ] || wrong "MINUTES is missing"
minutes=${words[0]}
[[ $minutes =~ ^([0-9]{1,5})(\.[0-9]{1,3})?$ && $minutes =~ [1-9] ]] || wrong "'$minutes' is no number of minutes"
targets=("${words[@]:1}")

"$root/scripts/setup.sh"
cd "$root"
mapfile -t known < <(printf '%s\n' tests/fuzz/*_fuzzer.cpp | sed 's|.*/||; s|_fuzzer\.cpp$||')
[ ${#targets[@]} -gt 0 ] || targets=("${known[@]}")
for target in "${targets[@]}"; do
    printf '%s\n' "${known[@]}" | grep -q -x -F -- "$target" || wrong "no target '$target'; there are: ${known[*]}"
done
: "${seed:=$((1 + (RANDOM << 15 | RANDOM) % 999999999))}"

mkdir -p build/fuzz
exec 8>build/fuzz/.lock
flock -n 8 || { echo "another fuzzing run is at work in this checkout; waiting"; flock 8; }
started=$SECONDS
build_preset host-fuzz ravlo_fuzzers || exit 1
echo "built host-fuzz in $((SECONDS - started)) s"

# Freed memory is kept out of use for as long as a run of one input needs; more only costs memory.
export ASAN_OPTIONS=quarantine_size_mb=16:allocator_may_return_null=0
export UBSAN_OPTIONS=print_stacktrace=1
symbolizer=$(command -v llvm-symbolizer || command -v addr2line || true)
[ -z "$symbolizer" ] || export ASAN_SYMBOLIZER_PATH=$symbolizer

# share INDEX: the seconds of one target. What does not divide evenly goes to the first ones.
share() {
    awk -v minutes="$minutes" -v count="${#targets[@]}" -v index_="$1" 'BEGIN {
        total = int(minutes * 60 + 0.5); each = int(total / count)
        if (index_ < total - each * count) each++
        print each < 2 ? 2 : each
    }'
}

# options_of TARGET: what its inputs are limited to, one option a line; a finding is repeated with the same.
options_of() {
    echo "-timeout=10"
    [ ! -f "tests/fuzz/options/$1" ] || cat "tests/fuzz/options/$1"
}

# fuzz TARGET SECONDS: becomes the program, so that the caller's signals reach it. The engine counts whole seconds and
# ends once more than its limit have passed.
fuzz() {
    local target=$1 seconds=$2 folder=build/fuzz/$1 options=()
    rm -rf "$folder/corpus"
    mkdir -p "$folder/corpus" "$folder/findings"
    mapfile -t options < <(options_of "$target")
    # Equal addresses make a run repeatable.
    exec timeout --kill-after=5 $((seconds + 60)) scripts/lib/fixed_addresses.sh "build/host-fuzz/bin/ravlo_fuzz_$target" \
        -seed="$seed" -max_total_time=$((seconds - 1)) -print_final_stats=1 \
        -artifact_prefix="$folder/findings/" "${options[@]}" "$folder/corpus" "tests/fuzz/corpus/$target" \
        >"$folder/log" 2>&1 </dev/null 8>&-
}

declare -A target_of=() status_of=()
# Only what this run started, by its ids.
trap 'for pid in "${!target_of[@]}"; do kill "$pid" 2>/dev/null || true; done' EXIT
trap 'exit 130' INT TERM

# reap: waits for one of the programs to end.
reap() {
    local pid='' status=0
    wait -n -p pid "${!target_of[@]}" || status=$?
    status_of[${target_of[$pid]}]=$status
    unset "target_of[$pid]"
}

echo "fuzzing ${#targets[@]} targets for $minutes min in all, two at a time, seed $seed"
for index in "${!targets[@]}"; do
    [ ${#target_of[@]} -lt 2 ] || reap
    fuzz "${targets[index]}" "$(share "$index")" &
    target_of[$!]=${targets[index]}
done
while [ ${#target_of[@]} -gt 0 ]; do reap; done

# figure LOG PATTERN: the last number behind PATTERN, or "-".
figure() {
    local number
    number=$(grep -o -a -E "$2 *[0-9]+" "$1" | tail -n 1 | grep -o -E '[0-9]+$' || true)
    printf '%s' "${number:--}"
}

printf '%-18s%11s%14s%11s%8s%10s\n' target seed executions exec/s edges findings
failed=()
for target in "${targets[@]}"; do
    log=build/fuzz/$target/log
    executions=$(figure "$log" 'stat::number_of_executed_units:')
    findings=$(grep -c -a 'Test unit written to' "$log" || true)
    # A program that stopped without an input to show for it, or ran nothing, has not passed either.
    if [ "$findings" -eq 0 ] && { [ "${status_of[$target]}" -ne 0 ] || [ "$executions" = - ]; }; then findings=1; fi
    [ "$findings" -eq 0 ] || failed+=("$target")
    printf '%-18s%11s%14s%11s%8s%10s\n' "$target" "$seed" "$executions" \
        "$(figure "$log" 'stat::average_exec_per_sec:')" "$(figure "$log" 'cov:')" "$findings"
done

for target in "${failed[@]}"; do
    log=build/fuzz/$target/log
    echo "---- $target ended with ${status_of[$target]}; from $log:"
    grep -n -a -m 5 -E 'property violated|ERROR:|runtime error|SUMMARY:' "$log" || tail -n 20 "$log"
    program="build/host-fuzz/bin/ravlo_fuzz_$target $(options_of "$target" | tr '\n' ' ')"
    sed -n -E "s|^.*Test unit written to (.*)$|to repeat: $program\1|p" "$log"
done
[ ${#failed[@]} -eq 0 ]
