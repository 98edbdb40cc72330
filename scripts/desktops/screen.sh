# Sourced by desktops.sh: what can be seen on the screen.

# capture FILE
capture() { import -window root "$1"; }

# geometry ID: WIDTHxHEIGHT+X+Y; fails when the window is gone.
geometry() {
    local X Y WIDTH='' HEIGHT
    eval "$(xdotool getwindowgeometry --shell "$1" 2>/dev/null)"
    [ -n "$WIDTH" ] || return
    printf '%dx%d+%d+%d\n' "$WIDTH" "$HEIGHT" "$X" "$Y"
}
size_of() { geometry "$1" | sed 's/+.*//'; }

# changed BEFORE AFTER AREA: how many of a hundred pixels of the area differ clearly.
changed() {
    convert "$1" "$2" -crop "$3" +repage -compose difference -composite -colorspace gray -threshold 6% \
        -format '%[fx:round(100*mean)]' info:
}

# is_seen AREA BACKGROUND: whether something hides the background of a picture.
is_seen() {
    capture "$box/now.png"
    [ "$(changed "$2" "$box/now.png" "$1")" -ge 40 ]
}
is_not_seen() { ! is_seen "$@"; }

# unlike PICTURE PICTURE: the difference in thousandths, as if both had the first one's size.
unlike() {
    local size
    size=$(identify -format '%wx%h!' "$1")
    convert "$1" \( "$2" -resize "$size" \) -compose difference -composite -colorspace gray \
        -format '%[fx:round(1000*mean)]' info:
}

# popups: the ids of the popups that are shown, one a line.
popups() {
    local pid id
    for pid in $(client_pids); do
        for id in $(xdotool search --onlyvisible --pid "$pid" --name '' 2>/dev/null); do
            [ "$(size_of "$id")" != 179x107 ] || echo "$id"
        done
    done
}
popup_count() { popups | wc -l; }
has_popups() { [ "$(popup_count)" -ge "$1" ]; }
has_no_popup() { [ "$(popup_count)" = 0 ]; }
