# The demo's actors: the camera's host and its producers. Source it after wine.sh; it needs $root, $out, $bin, $pipe,
# $video (may be empty), $width, $height and $rate.

film_font=/usr/share/fonts/truetype/dejavu/DejaVuSansMono-Bold.ttf
film_pid=''
producer_pid=''
host_pid=''

now_ms() {
    date +%s%3N
}

# film WIDTH HEIGHT SECOND: the film from this second of the story on, as Y4M on standard output.
film() {
    local size=$1x$2 second=$3 colours=out_color_matrix=bt709:out_range=tv
    if [ -n "$video" ]; then
        exec ffmpeg -nostdin -v error -stream_loop -1 -ss "$(film_position "$second")" -i "$video" -an -sn \
            -vf "fps=$rate,scale=$1:$2:force_original_aspect_ratio=decrease:$colours,pad=$1:$2:-1:-1,setsar=1" \
            -pix_fmt yuv420p -strict -1 -f yuv4mpegpipe -
    fi
    local first text box
    first=$(awk -v second="$second" -v rate="$rate" 'BEGIN { print int(second * rate) }')
    text="%{pts\\:hms\\:$second}  frame %{eif\\:n+$first\\:d\\:5}"
    box=fontcolor=white:box=1:boxcolor=black@0.7:boxborderw=$(($2 / 60))
    exec ffmpeg -nostdin -v error -f lavfi -i "testsrc2=size=$size:rate=$rate" \
        -vf "drawtext=fontfile=$film_font:fontsize=$(($2 / 12)):$box:x=(w-tw)/2:y=h*0.7:text='$text',scale=$colours" \
        -pix_fmt yuv420p -strict -1 -f yuv4mpegpipe -
}

# film_position SECOND: where the user's video stands at this second of the story, were it shown over and over.
film_position() {
    local length
    length=$(ffprobe -v error -show_entries format=duration -of csv=p=0 "$video" 2>/dev/null || true)
    awk -v second="$1" -v length_s="$length" \
        'BEGIN { if (length_s + 0 > 1) while (second >= length_s) second -= length_s; else second = 0; print second }'
}

# start_producer LABEL WIDTH HEIGHT SECOND: ffmpeg on this side, rvfeeder on the other, a pipe between them.
start_producer() {
    local fifo=$out/film.fifo
    rm -f "$fifo"
    mkfifo "$fifo"
    (film "$2" "$3" "$4" >"$fifo" 2>"$out/logs/ffmpeg-$1.log" </dev/null 9>&-) &
    film_pid=$!
    # Not through wine_run: the process id must be that of the program, which is to be killed.
    "$wine_loader" "$bin/rvfeeder.exe" - --pipe "$pipe" <"$fifo" >"$out/logs/rvfeeder-$1.log" 2>&1 9>&- &
    producer_pid=$!
}

# start_test_card LABEL WIDTH HEIGHT: the producer draws its own pictures, with the time of each in it.
start_test_card() {
    "$wine_loader" "$bin/rvfeeder.exe" --test-card --size "$2x$3" --rate "$rate" --pipe "$pipe" --json \
        </dev/null >"$out/logs/rvfeeder-$1.json" 2>"$out/logs/rvfeeder-$1.log" 9>&- &
    producer_pid=$!
}

# kill_producer: at once, as a crash would.
kill_producer() {
    kill_and_reap "$producer_pid"
    kill_and_reap "$film_pid"
    producer_pid=''
    film_pid=''
}

# die_with_half_a_frame: a producer that writes a header and half a payload and is gone; its exit code is then 9.
die_with_half_a_frame() {
    local code=0
    wine_run "$bin/half_frame.exe" "$pipe" "${width}x$height" </dev/null >"$out/logs/half_frame.log" 2>&1 || code=$?
    [ "$code" -eq 9 ] || { echo "demo: the producer that should die with half a frame ended with $code" >&2; return 1; }
}

# start_host SECONDS: returns once the camera runs.
start_host() {
    "$wine_loader" "$bin/rvhost.exe" --geometry "${width}x$height@$rate/1" --pipe "$pipe" --seconds "$1" \
        --samples-csv "$(windows_path "$out/samples.csv")" --pictures "$(windows_path "$out/pictures")" \
        --contact-sheet "$(windows_path "$out/contact-sheet.png")" --every-ms 1000 \
        </dev/null >"$out/host-summary.txt" 2>"$out/logs/rvhost.log" 9>&- &
    host_pid=$!
    local deadline=$((SECONDS + 30))
    while [ ! -e "$out/samples.csv" ]; do
        if ! kill -0 "$host_pid" 2>/dev/null || [ $SECONDS -ge $deadline ]; then
            echo "demo: the camera did not start:" >&2
            cat "$out/logs/rvhost.log" >&2
            return 1
        fi
        sleep 0.05
    done
}

# wait_for_host: the code it ended with.
wait_for_host() {
    local code=0
    wait "$host_pid" || code=$?
    host_pid=''
    return $code
}

stop_all_actors() {
    kill_producer
    kill_and_reap "$host_pid"
    rm -f "$out/film.fifo"
}

kill_and_reap() {
    [ -n "$1" ] || return 0
    kill -9 "$1" 2>/dev/null || true
    wait "$1" 2>/dev/null || true
}

windows_path() {
    local path=Z:$1
    echo "${path//\//\\}"
}
