# Sourced by desktops.sh: the rows of Wayland sessions, in the manner of rows.sh, whose row_minute comes first.
# shellcheck disable=SC2154 # pattern_* come from wayland.sh

# whole_minute COMMAND...: repeats the command for the rest of the minute under way and a whole one; its number
# of active slices is in $slices.
whole_minute() {
    local wanted end=$((SECONDS + 90))
    wanted=$(($(received 'отчёт:') + 2))
    until has_received 'отчёт:' "$wanted"; do
        [ "$SECONDS" -lt "$end" ] || failed "no reports arrive" || return
        "$@"
    done
    slices=$(last_slices)
}
last_slices() { sed -n 's/.*отчёт:.* активность \([0-9]*\),.*/\1/p' "$service_log" | tail -n 1; }

# A clock five times as fast has slices longer than the second in which the watcher notifies once.
row_input() {
    start_client 5 || return
    whole_minute wl_activity || return
    [ "$slices" = 10 ] || failed "with input $slices of 10 slices are active, by $(watcher_source)" || return
    whole_minute sleep 0.2 || return
    [ "$slices" = 0 ] || failed "without input $slices of 10 slices are active, by $(watcher_source)"
}

# show_pattern: fills the screen behind the client; the pictures are $box/frames/0.png to 3.png.
show_pattern() {
    local i
    mkdir -p "$box/frames"
    convert -size 64x64 xc:'#306090' xc:'#e0c080' +append \( +clone -flop \) -append "$box/frames/tile.png"
    for i in 0 1 2 3; do
        convert "$box/frames/tile.png" -roll "+$((32 * i))+0" -write mpr:tile +delete -size "${pattern_area%%+*}" \
            tile:mpr:tile "$box/frames/$i.png"
    done
    in_session env GDK_BACKEND=wayland PATTERN_FULLSCREEN="$pattern_fullscreen" "$box/bin/pattern.py" \
        "$box"/frames/[0-3].png >"$box/pattern.log" 2>&1 &
    disown
    wait_for 10 eval 'wl_fill && capture "$box/now.png" && shows_pattern "$box/now.png" "$(client_areas)"'
}
end_pattern() {
    local pid
    for pid in $(session_processes); do
        ! grep -qs pattern.py "/proc/$pid/cmdline" || kill "$pid" 2>/dev/null || true
    done
}

# client_areas: where its windows are, WIDTHxHEIGHT+X+Y, one a line.
client_areas() {
    local pid id screen
    screen=$(xdotool getdisplaygeometry)
    for pid in $(client_pids); do
        for id in $(xdotool search --onlyvisible --pid "$pid" --name '' 2>/dev/null); do geometry "$id" || true; done
    done | grep -vxE "1x1\+.*|${screen/ /x}\+0\+0" | sort -u
}

# shows_pattern PICTURE AREAS: on 99 % of the pixels outside of the areas. The frame is in $frame.
shows_pattern() {
    local area mask=()
    for area in $2; do mask+=(-draw "$(as_rectangle "$area")"); done
    for frame in 0 1 2 3; do
        convert "$1" -crop "$pattern_area" +repage "$box/frames/$frame.png" -compose difference -composite \
            -colorspace gray -threshold 10% -fill black "${mask[@]}" -format '%[fx:mean <= 0.01]' info: |
            grep -qx 1 && return
    done
    return 1
}

# On a clock twenty times as fast, five minutes each. ORVANA_PICTURES says how many, by default 20.
row_pattern() {
    local result=0
    control set-versions version= version2=
    end_client
    touch "$box/mark"
    show_pattern || not_tried "the pattern does not fill the screen" || { end_pattern; return 2; }
    pattern_pictures || result=$?
    capture "$pictures/pattern.png"
    end_pattern
    return "$result"
}
pattern_pictures() {
    local count=${ORVANA_PICTURES:-20} before areas name size good=0 frames=''
    before=$(received 'снимок экрана')
    start_client 20 || return
    wait_for $((count * 20 + 40)) has_received 'снимок экрана' $((before + count)) ||
        failed "$(($(received 'снимок экрана') - before)) of $count pictures arrived" || return
    areas=$(client_areas)
    end_client
    for name in $(find "$box/service/screenshots" -type f -newer "$box/mark" | sort | head -n "$count"); do
        size=$(identify -format '%wx%h' "$name")
        if [ "$size" = 1280x800 ] && shows_pattern "$name" "$areas"; then
            good=$((good + 1)) frames+=$frame
        else
            cp "$name" "$pictures/pattern-bad.jpg"
        fi
    done
    cp "$name" "$pictures/pattern-sent.jpg"
    [ "$good" = "$count" ] || failed "$good of $count pictures show the pattern" || return
    [ -n "$(tr -d "${frames:0:1}" <<<"$frames")" ] || failed "all $count pictures show the same" || return
    name=$(find "$HOME" "$TMPDIR" "$XDG_RUNTIME_DIR" /tmp/*.{png,jpg} -newer "$box/mark" -type f \
        \( -name '*.png' -o -name '*.jpg' -o -name '*.jpeg' \) 2>/dev/null | head -n 3)
    [ -z "$name" ] || failed "left over: $name"
}

row_video() {
    local result=0
    start_client 5 || return
    show_pattern || not_tried "the pattern does not fill the screen" || { end_pattern; return 2; }
    if wl_inhibit; then
        whole_minute sleep 0.2 || result=1
        wl_uninhibit
        if [ "$result" = 0 ] && [ "$slices" != 0 ]; then
            case $(watcher_source) in
            org_kde_kwin_idle | ext-idle-notify-v1*1) not_tried "$(watcher_source) cannot tell: $slices of 10 slices are active" ;;
            *) failed "$slices of 10 slices are active, by $(watcher_source)" ;;
            esac || result=$?
        fi
    else
        not_tried "nothing here keeps the screen on" || result=$?
    fi
    end_pattern
    return "$result"
}

row_popup() {
    local scale result=0
    control set-versions version=1.2.0 version2=
    for scale in 1 2; do
        if wl_scale "$scale"; then
            popup_apart "$scale" || { result=$?; why="scale $scale: $why"; break; }
        else
            not_tried "scale $scale cannot be set in a session" || result=$?
        fi
    done
    wl_scale 1
    control set-versions version= version2=
    return "$result"
}
popup_apart() {
    local areas factor seen area other i active
    start_client 10 || return
    wait_for 15 has_popups 1 || failed "no popup" || return
    control add-task team=17 "title=Срочная правка $RANDOM"
    active=$(xdotool getactivewindow 2>/dev/null)
    # Besides the two that stay there is one for seconds.
    wait_for 30 two_popups_stay || failed "no second popup" || return
    [ "$active" = "$(xdotool getactivewindow 2>/dev/null)" ] || failed "a popup takes the keyboard" || return
    capture "$pictures/popup-scale-$1.png"
    areas=$(client_areas)
    [ "$(wc -l <<<"$areas")" -ge 3 ] || failed "fewer than three windows: $areas" || return
    for area in $areas; do
        for other in $areas; do
            [[ $area < $other ]] || continue
            ! overlap "$area" "$other" || failed "$area and $other are on top of each other" || return
        done
    done
    # Xwayland's idea of the places is also the compositor's: everything new is there and nowhere else.
    factor=$(wl_scaled "$1")
    seen=()
    for area in $areas; do
        area=$(times "$factor" "$area")
        seen+=(-draw "$(as_rectangle "$area")")
        i=$(changed "$box/empty.png" "$pictures/popup-scale-$1.png" "$area")
        [ "$i" -ge 40 ] || failed "the screen shows nothing at $area" || return
    done
    i=$(convert "$box/empty.png" "$pictures/popup-scale-$1.png" -crop "$(times "$factor" "$pattern_area")" +repage -compose difference -composite \
        -colorspace gray -threshold 6% -fill black "${seen[@]}" -format '%[fx:round(10000*mean)]' info:)
    [ "$i" -le 20 ] || failed "$i of 10,000 pixels show something where no window should be"
}
two_popups_stay() { [ "$(popup_count)" = 2 ] && sleep 2 && [ "$(popup_count)" = 2 ]; }
overlap() {
    local w h x y w2 h2 x2 y2
    IFS=x+ read -r w h x y <<<"$1"
    IFS=x+ read -r w2 h2 x2 y2 <<<"$2"
    [ "$x" -lt $((x2 + w2)) ] && [ "$x2" -lt $((x + w)) ] && [ "$y" -lt $((y2 + h2)) ] && [ "$y2" -lt $((y + h)) ]
}
times() { awk -F '[x+]' -v f="$1" '{ print f * $1 "x" f * $2 "+" f * $3 "+" f * $4 }' <<<"$2"; }

# The watcher as a service of the user, as its package installs it. No slice is shorter than what a kill costs,
# so that each has its input.
row_watcher_kills() {
    local result=0
    end_client
    kill "$(watcher_pid)"
    wait_for 5 eval '[ -z "$(watcher_pid)" ]'
    if start_watcher_service; then
        kill_watcher || result=1
    else
        not_tried "no service manager: $(tail -n 1 "$box/manager.log")" || result=$?
    fi
    end_client
    kill "$manager_pid" 2>/dev/null || true
    wait_for 10 ended "$manager_pid" || true
    start_session_watcher
    return "$result"
}
watcher_pid() {
    local pid
    for pid in $(session_processes); do
        [ "$(readlink "/proc/$pid/exe" 2>/dev/null)" != "$box/bin/orvana-watcher" ] || echo "$pid"
    done
}
start_watcher_service() {
    local units=$box/units
    manager_pid=
    [ "$(id -u)" = 0 ] || { echo "needs root" >"$box/manager.log"; return 1; }
    mkdir -p "$units" "$box/manager"
    sed "s|^ExecStart=.*|ExecStart=$box/bin/orvana-watcher\nStandardOutput=append:$box/watcher.log|" "$build/companions/watcher/orvana-watcher.service" \
        >"$units/orvana-watcher.service"
    printf '%s\n' '[Unit]' Wants=orvana-watcher.service >"$units/default.target"
    # Without these it is started, but not once more.
    printf '%s\n' '[Unit]' | tee "$units/basic.target" >"$units/shutdown.target"
    : >"$box/watcher.log"
    give_away "$units" "$box/manager" "$box/watcher.log"
    # shellcheck source=/dev/null
    # The compositor's socket is in another runtime folder than the manager's.
    (. "$box/environment"; export WAYLAND_DISPLAY=$XDG_RUNTIME_DIR/$WAYLAND_DISPLAY XDG_RUNTIME_DIR=$box/manager; exec \
        scripts/desktops/service-manager.sh "$units") >"$box/manager.log" 2>&1 &
    manager_pid=$!
    wait_for 15 eval '[ -n "$(watcher_source)" ]'
}
kill_watcher() {
    local wanted kills=0 next=0
    start_client 1 || return
    wanted=$(($(received 'отчёт:') + 1))
    until has_received 'отчёт:' "$wanted"; do
        [ "$kills" -lt 30 ] || failed "no report arrives" || return
        wl_activity
        if [ "$SECONDS" -ge "$next" ] && kill -KILL "$(watcher_pid)" 2>/dev/null; then
            kills=$((kills + 1)) next=$((SECONDS + 3))
        fi
    done
    slices=$(last_slices)
    { [ "$slices" = 10 ] && [ "$kills" -ge 19 ]; } || failed "$slices of 10 slices are active after $kills kills"
}

# says EXPRESSION CODE COMMAND...
says() {
    local expression=$1 wanted=$2 code=0 text
    shift 2
    text=$(in_session "$box/bin/orvana-control" "$@" 2>&1) || code=$?
    { [ "$code" = "$wanted" ] && grep -q -- "$expression" <<<"$text"; } || failed "orvana-control $*: $code, $text"
}

row_control() {
    end_client
    says 'не запущен' 1 status || return
    start_client 1 || return
    wait_for 10 has_window '^Orvana$' && wait_for 10 is_active || not_tried "the timer does not run" || return
    says '"running":true' 0 status --json || return
    says . 0 stop || return
    wait_for 5 eval '! is_active' || failed "the timer runs after a stop" || return
    says '"running":false' 0 status --json || return
    says . 0 start || return
    wait_for 5 is_active || failed "the timer does not run after a start" || return
    [ -n "$control_key" ] || return 0
    wl_key "$control_key"
    wait_for 5 eval '! is_active' || failed "the key $control_key does not stop the timer" || return
    wl_key "$control_key"
    wait_for 5 is_active || failed "the key $control_key does not start the timer"
}

row_logout() {
    local reports
    control set-versions version=1.2.0 version2=
    start_client 5 || return
    wait_for 15 has_popups 1 || failed "no popup" || return
    work_until_received 'отчёт:' $(($(received 'отчёт:') + 1)) 30 || failed "no minute is counted" || return
    shot
    logs_out || return
    end_session
    control set-versions version= version2=
    start_session || not_tried "the desktop does not start again" || return
    reports=$(received 'отчёт:')
    start_client 10 || return
    work_until_received 'отчёт:' $((reports + 1)) 20 || failed "the next session does not resume the timer" || return
    wait_for 5 nothing_waits || failed "reports wait in the cache: $(waiting)"
}
waiting() { find "$box/storage/.orvana/$login/activity" -name 'json*'; }
nothing_waits() { [ -z "$(waiting)" ]; }
