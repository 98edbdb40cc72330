# Sourced by desktops.sh: one function a row. Each returns 0, or sets $why and returns 1 when
# the client failed, 2 when it could not be tried. Each brings the client into the state it needs.

why=
failed() { why=$1; return 1; }
not_tried() { why=$1; return 2; }

login=anna@orvana.example
session_file() { echo "$box/storage/.orvana/$login/session.ini"; }
is_active() { grep -qx 'active=true' "$(session_file)"; }
has_task() { grep -q '^taskID=.' "$(session_file)"; }

# park: the pointer goes where it causes no tool tip.
park() { xdotool mousemove 400 500; }

toggle_tracking() {
    click '^Orvana$' 42 73
    park
}

# A pointer that moves now and then: somebody works at this desktop.
work_until_received() {
    local end=$((SECONDS + $3))
    until has_received "$1" "$2"; do
        [ "$SECONDS" -lt "$end" ] || return 1
        nudge
    done
}
nudge_by=40
nudge() {
    nudge_by=$((-nudge_by))
    xdotool mousemove_relative -- "$nudge_by" 0
    sleep 0.3
}

# Where the desktop asks for it.
allow_screenshots() { :; }

row_minute() {
    local reports
    start_client 10 || return
    if has_window '^Авторизация$'; then
        xdotool windowactivate --sync "$(window '^Авторизация$')"
        type_text "$login"
        press Tab
        type_text orvana
        press Return
        wait_for 20 has_window '^Orvana$' || failed "no main window after the login" || return
    fi
    wait_for 20 has_no_window '^Авторизация$' || failed "the login window stays" || return
    # A desktop may still fade the login window out, and the first click gets lost.
    click '^Orvana$' 120 27
    wait_for 4 has_window '^Задачи$' || click '^Orvana$' 120 27
    wait_for 20 has_window '^Задачи$' || failed "the chooser does not open" || return
    xdotool windowactivate --sync "$(window '^Задачи$')"
    press Tab Down Down Return
    wait_for 20 has_no_window '^Задачи$' || failed "no task can be chosen" || return
    # The button takes no click before.
    wait_for 10 has_task || failed "the chosen task is not stored" || return
    reports=$(received 'отчёт:')
    toggle_tracking
    wait_for 4 is_active || toggle_tracking
    wait_for 5 is_active || failed "the start is not stored" || return
    allow_screenshots
    work_until_received 'отчёт:' $((reports + 1)) 30 || failed "no report of a minute arrives"
}

# open_terminal fullscreen|maximized_vert,maximized_horz
open_terminal() {
    : >"$box/typed"
    in_session xterm -title terminal -bg '#102030' -fg white -e "cat >'$box/typed'" >/dev/null 2>&1 &
    disown
    wait_for 10 eval "wmctrl -l | grep -q ' terminal$'" || return
    wmctrl -r terminal -b "add,$1"
    xdotool windowactivate --sync "$(window '^terminal$')" 2>/dev/null
    wait_for 5 has_keyboard '^terminal$' && wait_for 5 is_terminal_drawn
}
# Its lower left corner, where nothing of the client is.
is_terminal_drawn() {
    capture "$box/now.png"
    [ "$(convert "$box/now.png" -crop 100x100+100+600 +repage -scale 1x1! -depth 8 rgb:- | od -An -tx1)" = ' 10 20 30' ]
}
has_keyboard() { xdotool getactivewindow getwindowname | grep -q "$1"; }

close_terminal() {
    local id
    id=$(window '^terminal$')
    [ -z "$id" ] || xdotool windowkill "$id"
    wait_for 5 has_no_window '^terminal$'
}

# Somebody types while a popup comes; it stays until it is clicked.
popup_over_terminal() {
    local typed='' end popup area result=0
    control set-versions version= version2=
    start_client 10 || return
    wait_for 10 has_window '^Orvana$' && wait_for 10 has_no_popup || failed "no client without popups" || return
    open_terminal "$1" || { shot; close_terminal; not_tried "no terminal gets the keyboard"; return; }
    capture "$box/before.png"
    rm -f "$box/opened"
    control add-task team=17 "title=Срочная правка $RANDOM"
    end=$((SECONDS + 20))
    while has_no_popup && [ "$SECONDS" -lt "$end" ]; do
        type_text x
        typed+=x
    done
    popup=$(popups | head -n 1)
    if [ -z "$popup" ]; then
        # It may be there for the program and not for the eye.
        failed "no popup is shown while the terminal is in use"
        result=1
    else
        type_text ' and on'
        press Return
        type_text 'next'
        press Return
        typed+=$' and on\nnext'
        wait_for 3 same_text "$typed" || failed "the terminal got $(wc -c <"$box/typed") of $((${#typed} + 1)) characters" || result=1
        [ ! -e "$box/opened" ] || failed "Return in the terminal opened a page" || result=1
        area=$(geometry "$popup")
        wait_for 3 is_seen "$area" "$box/before.png" || failed "the popup is not seen over the terminal" || result=1
    fi
    shot
    close_terminal
    return "$result"
}
same_text() { [ "$(cat "$box/typed")" = "$1" ]; }

row_popup_typing() { popup_over_terminal maximized_vert,maximized_horz; }
row_popup_fullscreen() { popup_over_terminal fullscreen; }

# Its icon changes with the timer: what else changes outside of the client's windows is none.
find_tray_icon() {
    local area
    area=$(geometry "$(main_window)")
    capture "$box/before.png"
    toggle_tracking
    wait_for 5 tray_icon_changed "$area"
    toggle_tracking
    wait_for 5 is_active
    [ -n "$tray_icon" ]
}
tray_icon_changed() {
    local box_of width height x y
    capture "$box/after.png"
    box_of=$(convert "$box/before.png" "$box/after.png" -compose difference -composite -colorspace gray -threshold 4% \
        -fill black -draw "$(as_rectangle "$1")" -format '%@' info: 2>/dev/null)
    IFS=x+ read -r width height x y <<<"$box_of"
    [ "$width" -ge 5 ] && [ "$width" -le 64 ] && [ "$height" -ge 5 ] && [ "$height" -le 64 ] || return 1
    tray_icon="$((x + width / 2)) $((y + height / 2))"
}
as_rectangle() {
    local width height x y
    IFS=x+ read -r width height x y <<<"$1"
    echo "rectangle $x,$y $((x + width)),$((y + height))"
}
# Of a window: the right half of its place may get a popup once it is hidden.
left_half() {
    local width height x y
    IFS=x+ read -r width height x y <<<"$1"
    echo "$((width / 2))x$height+$x+$y"
}
needs_tray_icon() { [ -n "$tray_icon" ] || not_tried "no tray icon was found"; }

# Between two of them passes more than the time of a double click.
click_tray() {
    sleep 1
    local x y
    read -r x y <<<"$tray_icon"
    xdotool mousemove "$x" "$y" click --repeat "${1:-1}" --delay 80 1
    sleep 1
    park
}

row_tray_icon() {
    tray_icon=
    control set-versions version= version2=
    start_client 1 || return
    wait_for 10 has_no_popup
    # A panel's clock may change at the same time.
    find_tray_icon || find_tray_icon || failed "nothing in the panel changes with the timer"
}

row_tray_click() {
    needs_tray_icon || return
    local area
    area=$(left_half "$(geometry "$(main_window)")")
    click_tray
    wait_for 3 is_not_seen "$area" "$box/empty.png" || failed "a click does not hide the window" || return
    click_tray
    wait_for 3 is_seen "$area" "$box/empty.png" || failed "the next click does not show it"
}

row_tray_double() {
    needs_tray_icon || return
    local area
    start_client 1 || return
    area=$(left_half "$(geometry "$(main_window)")")
    click_tray 2
    wait_for 3 is_seen "$area" "$box/empty.png" || failed "a double click hides a shown window" || return
    click_tray
    wait_for 3 is_not_seen "$area" "$box/empty.png" || failed "it cannot be hidden afterwards" || return
    click_tray 2
    wait_for 3 is_seen "$area" "$box/empty.png" || failed "a double click does not show a hidden window"
}

switch_to_desktop() {
    wmctrl -s "$1"
    wait_for 5 eval "wmctrl -d | grep -q '^$1 *\\*'"
}

row_second_desktop() {
    local area popup result=0
    wmctrl -n 2
    wait_for 5 eval '[ "$(wmctrl -d | wc -l)" -ge 2 ]' || not_tried "there is one desktop only" || return
    control set-versions version=1.2.0 version2=
    start_client 1 || return
    wait_for 15 has_popups 1 || failed "no popup" || return
    area=$(left_half "$(geometry "$(main_window)")")
    popup=$(geometry "$(popups | head -n 1)")
    second_desktop_seen "$area" "$popup" || result=1
    [ -n "$tray_icon" ] && [ "$result" = 0 ] && { second_desktop_tray "$area" || result=1; }
    switch_to_desktop 0
    control set-versions version= version2=
    return "$result"
}
second_desktop_seen() {
    switch_to_desktop 1 || not_tried "the window manager does not switch" || return
    local result=0
    wait_for 3 is_seen "$2" "$box/empty.png" || failed "the popup is not seen on the second desktop" || result=1
    wait_for 3 is_seen "$1" "$box/empty.png" || failed "the window is not seen on the second desktop" || result=1
    shot
    return "$result"
}
# Hidden on one desktop and shown on another; and left behind by somebody on the first.
second_desktop_tray() {
    click_tray
    wait_for 3 is_not_seen "$1" "$box/empty.png" || failed "a click does not hide the window there" || return
    switch_to_desktop 0
    click_tray
    wait_for 3 is_seen "$1" "$box/empty.png" || failed "hidden on one desktop, it is not shown on the other" || return
    wmctrl -i -r "$(main_window)" -b remove,sticky
    wmctrl -i -r "$(main_window)" -t 0
    switch_to_desktop 1
    ! wait_for 3 is_not_seen "$1" "$box/empty.png" || click_tray
    wait_for 3 is_seen "$1" "$box/empty.png" || failed "the first click hides it unseen"
}

# Desktops set 144.2 where 144 was wished for.
is_near() {
    local width height wanted_width wanted_height
    IFS=x read -r width height <<<"$1"
    IFS=x read -r wanted_width wanted_height <<<"$2"
    [ $((width - wanted_width)) -ge -2 ] && [ $((width - wanted_width)) -le 2 ] &&
        [ $((height - wanted_height)) -ge -2 ] && [ $((height - wanted_height)) -le 2 ]
}

row_scale() {
    local dpi wanted got pictures="$pictures/scale" wrong=''
    mkdir -p "$pictures"
    control set-versions version= version2=
    for dpi in 96 82 92 144 192; do
        start_client 1 "$dpi" || return
        wait_for 10 has_no_popup
        park
        wanted=$(awk -v dpi="$dpi" 'BEGIN { s = dpi > 96 ? dpi / 96 : 1; printf "%.0fx%.0f", 352 * s, 148 * s }')
        got=$(size_of "$(main_window)")
        import -window root -crop "$(geometry "$(main_window)")" +repage "$pictures/$dpi.png"
        is_near "$got" "$wanted" || wrong+=", at $dpi dpi $got instead of $wanted"
        [ "$(unlike "$pictures/96.png" "$pictures/$dpi.png")" -lt 60 ] || wrong+=", at $dpi dpi it looks cut off"
    done
    [ -z "$wrong" ] || failed "${wrong#, }"
}

row_logout_popup() {
    control set-versions version=1.2.0 version2=
    start_client 1 || return
    wait_for 15 has_popups 1 || failed "no popup" || return
    shot
    logs_out
}

# The end of the session is not held up, and what was chosen stays chosen.
logs_out() {
    wait_for 10 is_active || not_tried "the timer does not run" || return
    log_out >>"$box/logout.log" 2>&1
    if ! wait_for 15 session_ended; then
        shot
        end_client
        if wait_for 5 ended "$session_pid" || { log_out >>"$box/logout.log" 2>&1; wait_for 15 ended "$session_pid"; }; then
            failed "the session ends only without the client"
        else
            not_tried "the session does not end without the client either"
        fi
        return
    fi
    is_active || failed "the timer is stored as stopped"
}

# The session before has ended with the timer running; it may have been saved with the client in it.
row_start_again() {
    local reports result=0
    control set-versions version= version2=
    autostart orvana "$box/bin/start-client"
    echo 10 >"$box/clock"
    reports=$(received 'отчёт:')
    start_session || not_tried "the desktop does not start again" || return
    wait_for 30 has_window '^Orvana$' || failed "the client is not started" || return
    # A second copy needs its time to come.
    wait_for 6 has_second_copy && { failed "a second copy was started"; result=1; }
    shot
    [ "$result" != 0 ] || work_until_received 'отчёт:' $((reports + 1)) 20 || failed "no minute is counted" || result=1
    return "$result"
}
has_second_copy() { [ "$(client_count)" -gt 1 ] || has_window '^Orvana Team Monitor$'; }

row_logout_without_tray() {
    rm -f "$HOME/.config/autostart/orvana.desktop"
    if declare -F leave_out_panel >/dev/null; then
        leave_out_panel
        start_session any
    else
        start_session && end_panel
    fi >>"$box/logout.log" 2>&1 || not_tried "the desktop does not start without a panel" || return
    wait_for 10 eval '! has_panel' || not_tried "the panel comes back" || return
    start_client 1 || return
    shot
    logs_out
}

row_two_monitors() {
    local dpi sent screen wrong=''
    # The session before may have been saved without a panel.
    start_session any || not_tried "the desktop does not start on two monitors" || return
    for dpi in 96 144; do
        sent=$(received 'снимок экрана')
        start_client 40 "$dpi" || return
        work_until_received 'снимок экрана' $((sent + 1)) 40 || failed "no picture arrives at $dpi dpi" || return
        capture "$pictures/two_monitors.png"
        screen=$(identify -format '%wx%h' "$pictures/two_monitors.png")
        cp "$(find "$box/service/screenshots" -type f -printf '%T@ %p\n' | sort -rn | head -n 1 | cut -d ' ' -f 2-)" "$pictures/two_monitors-sent-$dpi.jpg"
        sent=$(identify -format '%wx%h' "$pictures/two_monitors-sent-$dpi.jpg")
        [ "$sent" = "$screen" ] || { wrong+=", at $dpi dpi $sent instead of $screen"; continue; }
        [ "$(unlike "$pictures/two_monitors.png" "$pictures/two_monitors-sent-$dpi.jpg")" -lt 60 ] ||
            wrong+=", at $dpi dpi something else than the screen"
    done
    [ -z "$wrong" ] || failed "${wrong#, }"
}
