# What a user does with the camera besides sending it a film: install it, ask the doctor, offer it to applications, gather
# a report, take it away. Source it after demo_story.sh; it needs $root, $out and $bin.

client_pid=''

# as_user NAME PROGRAM ARGUMENT...: runs a program as a user would; both its outputs are kept in out/demo/NAME.txt.
as_user() {
    local name=$1 program=$2 code=0
    shift 2
    wine_run "$bin/$program.exe" "$@" </dev/null >"$out/$name.raw" 2>&1 || code=$?
    tr -d '\r' <"$out/$name.raw" >"$out/$name.txt"
    rm -f "$out/$name.raw"
    return $code
}

install_camera() {
    as_user install rvsetup install --me --dll "$(windows_path "$bin/rvmediasource.dll")" || {
        echo "demo: rvsetup install ended with $?:" >&2
        cat "$out/install.txt" >&2
        return 1
    }
    sed 's/^/  /' "$out/install.txt"
}

# ask_doctor NAME OPTION...: shows what the doctor has found. Wine gives files other owners than Windows, which it says.
ask_doctor() {
    local name=$1
    shift
    as_user "$name" rvsetup doctor "$@" || true
    sed 's/^/  /' "$out/$name.txt"
}

# doctor_says NAME TEXT: whether a line of the doctor's is this one, as a regular expression.
doctor_says() {
    grep -q -E "$2" "$out/$1.txt" || {
        echo "demo: the doctor did not say \"$2\"; see out/demo/$1.txt" >&2
        return 1
    }
}

# offer_camera: a camera for applications, with the test card, for as long as it takes to arrive. Wine has no virtual
# cameras: the tests' stand-in for them hosts the source and writes down each sample.
offer_camera() {
    local client_pipe='\\.\pipe\Ravlo.2' record=$out/client-record.txt feeder_code=0 code=0
    : >"$record"
    RAVLO_STANDIN_RECORD=$(windows_path "$record") RAVLO_STANDIN_PULL=1 "$wine_loader" "$bin/rvclient.exe" start \
        --session --name 'Demo Camera' --geometry 640x360@30 --pipe "$client_pipe" \
        </dev/null >"$out/logs/rvclient.log" 2>&1 9>&- &
    client_pid=$!
    wine_run "$bin/rvfeeder.exe" --test-card --size 640x360 --pipe "$client_pipe" --timeout 20 --seconds 3 \
        </dev/null >"$out/logs/rvfeeder-client.log" 2>&1 || feeder_code=$?
    # Ctrl+C, as the terminal would send it.
    kill -INT "$client_pid" 2>/dev/null || true
    wait "$client_pid" || code=$?
    client_pid=''
    if [ "$feeder_code" -ne 0 ]; then
        echo "demo: rvfeeder ended with $feeder_code while the camera was offered" >&2
        return 1
    fi
    say "rvclient ended with $code; $(grep -c '^# sample' "$record") samples of the offered camera were pulled"
    [ "$(grep -c '^# sample' "$record")" -ge 30 ]
}

remove_camera() {
    as_user uninstall rvsetup uninstall || {
        echo "demo: rvsetup uninstall ended with $?:" >&2
        cat "$out/uninstall.txt" >&2
        return 1
    }
    sed 's/^/  /' "$out/uninstall.txt"
}
