# Sourced by run.sh, and by desktops.sh for its functions: a day's work in a minute, with real clicks and keys.
# Needs scripts/common.sh, scripts/services.sh and a running virtual desktop.

# window TITLE: the id of a visible window, or nothing.
window() { xdotool search --onlyvisible --name "$1" 2>/dev/null | tail -n 1; }
has_window() { [ -n "$(window "$1")" ]; }
has_no_window() { [ -z "$(window "$1")" ]; }

# click TITLE X Y [CLICKS]: X and Y are the window's own coordinates; a negative X
# counts from its right edge.
click() {
    local id x=$2
    id=$(window "$1")
    [ "$x" -ge 0 ] || x=$((x + $(xdotool getwindowgeometry --shell "$id" | sed -n 's/^WIDTH=//p')))
    xdotool mousemove --window "$id" "$x" "$3"
    xdotool click --repeat "${4:-1}" --delay 80 1
}

type_text() { xdotool type --delay 12 -- "$1"; }
press() { xdotool key --delay 60 "$@"; }

picture() {
    step=$((step + 1))
    # The last change has to be drawn and composed first.
    sleep 0.7
    import -window root "$pictures/$(printf %02d "$step")-$1.png"
    say "  снимок: $pictures/$(printf %02d "$step")-$1.png"
}

received() { grep -c "$1" "$service_log" || true; }
has_received() { [ "$(received "$1")" -ge "$2" ]; }
# For wait_for: somebody works at this desktop meanwhile.
works_until_received() {
    xdotool mousemove_relative -- "$((RANDOM % 2 * 200 - 100))" 0
    has_received "$1" 1
}

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
    # With a Russian layout xdotool need not redefine a key for each Cyrillic letter.
    setxkbmap -layout us,ru
    rm -rf "$pictures"
    mkdir -p "$pictures"

    service_data=$box/service
    start "$client_log" build/release/src/orvana
    client_pid=${started[-1]}
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

    demo_task_windows
    demo_deadline
    demo_update
    demo_minutes

    say "Сервис получил:"
    grep -E 'отчёт:|снимок|дедлайн' "$service_log"
}

demo_task_windows() {
    say "Список задач и описание"
    click '^Orvana$' -88 73
    wait_for 20 has_window '^Задачи команды$' || fail "список задач"
    picture task-list
    xdotool windowactivate --sync "$(window '^Задачи команды$')"
    press Home Return
    wait_for 20 has_window '^Цели задачи$' || fail "описание задачи"
    picture description
    xdotool windowactivate --sync "$(window '^Цели задачи$')"
    press alt+2
    picture description-texts
    press Escape
    wait_for 20 has_no_window '^Цели задачи$' || fail "закрыть описание"
    xdotool windowactivate --sync "$(window '^Задачи команды$')"
    press Escape
    wait_for 20 has_no_window '^Задачи команды$' || fail "закрыть список задач"
}

demo_deadline() {
    say "Запрос на продление"
    click '^Orvana$' -30 123
    wait_for 20 has_window '^Запрос на продление задачи$' || fail "календарь"
    xdotool windowactivate --sync "$(window '^Запрос на продление задачи$')"
    click '^Запрос на продление задачи$' 108 290
    type_text 'Жду материалы от заказчика'
    picture calendar
    press Tab space
    wait_for 20 has_received 'дедлайн' 1 || fail "запрос на продление"
    picture deadline-requested
}

demo_update() {
    say "О программе и новая версия"
    local token
    token=$(curl --silent --insecure --noproxy '*' "$ORVANA_SERVICE_URL/state" | grep -o '"token":"[0-9a-f]*')
    curl --silent --insecure --noproxy '*' --data "version=1.2.0&token=${token##*\"}" \
        "$ORVANA_SERVICE_URL/control/set-versions" >/dev/null
    click '^Orvana$' -61 27
    sleep 0.5
    picture menu
    press Down Down Down Down Return
    wait_for 20 has_window '^О Orvana Team Monitor$' || fail "о программе"
    sleep 1
    picture about-and-update
    press Escape
}

# The next start resumes the timer. Its clock runs twenty times as fast, so that a minute
# and the screenshot are due within seconds.
demo_minutes() {
    say "Перезапуск с ускоренными часами: отчёты за минуты и снимок экрана"
    kill "$client_pid"
    wait "$client_pid" || true
    start "$client_log" env LD_PRELOAD='/usr/$LIB/faketime/libfaketime.so.1' FAKETIME='+0 x20' build/release/src/orvana
    wait_for 20 has_window '^Orvana$' || fail "второй запуск"
    picture resumed
    wait_for 60 works_until_received 'отчёт:' || fail "отчёт за минуту"
    picture minute-reported
    wait_for 60 works_until_received 'снимок' || fail "снимок экрана"
    cp "$(find "$service_data/screenshots" -name '*.jpg' | head -n 1)" "$pictures/uploaded-desktop.jpg"
    say "  сервис сохранил: $pictures/uploaded-desktop.jpg"
}
