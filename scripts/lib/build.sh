# Shell functions to configure and build presets. Source it; it needs $root, the top of the checkout.

# build_preset PRESET [TARGET]: both steps, quiet; on failure shows the log's end and returns 1.
build_preset() {
    local preset=$1 target=${2:-all} log=$root/build/logs/build-$1.log
    mkdir -p "$root/build/logs"
    if (cd "$root" && cmake --preset "$preset" && cmake --build --preset "$preset" --target "$target") \
        >"$log" 2>&1 </dev/null; then
        return 0
    fi
    echo "building $preset failed; the end of $log:"
    grep -n -E 'error|FAILED|undefined reference' "$log" | head -n 30
    tail -n 40 "$log"
    return 1
}
