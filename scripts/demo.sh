# Sourced by run.sh: a day's work in two minutes, with real clicks and keys.
# Needs scripts/common.sh and a running virtual desktop.

# window TITLE: the id of a visible window, or nothing.
window() { xdotool search --onlyvisible --name "$1" 2>/dev/null | tail -n 1; }
has_window() { [ -n "$(window "$1")" ]; }
has_no_window() { [ -z "$(window "$1")" ]; }

# click TITLE X Y [CLICKS]: in the window's own coordinates.
click() {
    local id
    id=$(window "$1")
    xdotool mousemove --sync --window "$id" "$2" "$3"
    xdotool click --repeat "${4:-1}" --delay 80 1
}

type_text() { xdotool type --delay 12 -- "$1"; }
press() { xdotool key --delay 60 "$@"; }

picture() {
    step=$((step + 1))
    # What was just changed has to be drawn and composed.
    sleep 0.7
    import -window root "$pictures/$(printf %02d "$step")-$1.png"
    say "  снимок: $pictures/$(printf %02d "$step")-$1.png"
}

received() { grep -c "$1" "$service_log" || true; }
has_received() { [ "$(received "$1")" -ge "$2" ]; }

fail() {
    say "Не получилось: $1" >&2
    import -window root "$pictures/failed.png" || true
    tail -n 20 "$client_log" >&2
    return 1
}

# demo FOLDER PICTURES
demo() {
    local box=$1
    pictures=$2
    service_log=$box/service.log
    client_log=$box/client.log
    step=0
    rm -rf "$pictures"
    mkdir -p "$pictures"

    start "$client_log" build/release/src/orvana
    wait_for 20 has_window '^Авторизация$' || fail "окно входа"
    say "Вход"
    xdotool windowactivate --sync "$(window '^Авторизация$')"
    type_text 'anna@orvana.example'
    press Tab
    type_text 'orvana'
    picture login
    press Return
    wait_for 20 has_window '^Orvana$' || fail "главное окно"
    wait_for 20 has_no_window '^Авторизация$' || fail "закрыть окно входа"
    picture first-start

    say "Выбор задачи"
    click '^Orvana$' 120 27
    wait_for 20 has_window '^Задачи$' || fail "выбор задачи"
    sleep 1
    press Tab Down Down
    picture chooser
    press Return
    wait_for 20 has_no_window '^Задачи$' || fail "принять задачу"

    say "Запись времени"
    click '^Orvana$' 42 73
    sleep 2
    picture tracking

    say "Ждём, пока закончится минута"
    local end=$((SECONDS + 90)) x=300
    until has_received 'отчёт:' 1; do
        [ $SECONDS -lt $end ] || { fail "отчёт за минуту"; return 1; }
        # Somebody works at this desktop.
        x=$((x == 300 ? 420 : 300))
        xdotool mousemove "$x" 500
        sleep 2
    done
    picture minute-reported

    say "Сервис получил:"
    grep -E 'отчёт:|снимок|дедлайн' "$service_log"
}
