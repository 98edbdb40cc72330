#!/bin/bash
# Renders every picture from its SVG at one and two device pixels per unit and
# writes the resource list. Needs python3 and rsvg-convert; optipng if present.
set -euo pipefail
cd "$(dirname "$0")"

python3 make_svg.py

rm -rf images icons hicolor
find svg -mindepth 2 -name '*.svg' | sort | while read -r source; do
    target="${source#svg/}"
    target="${target%.svg}"
    mkdir -p "$(dirname "$target")"
    rsvg-convert --zoom 1 "$source" -o "$target.png"
    # The page buttons have a drawing for each size.
    [[ $target == */descr_button_* ]] && continue
    rsvg-convert --zoom 2 "$source" -o "$target@2x.png"
done

for size in 16 22 24 32 48 64 128 256; do
    mkdir -p "hicolor/$size"
    # Fine strokes vanish at small sizes.
    source=svg/orvana.svg
    if ((size <= 32)); then source=svg/orvana-small.svg; fi
    rsvg-convert --width "$size" --height "$size" "$source" -o "hicolor/$size/orvana.png"
done

if command -v optipng >/dev/null; then
    find images icons hicolor -name '*.png' -print0 | xargs -0 -P2 -n16 optipng -quiet -strip all
fi

{
    echo '<RCC>'
    echo '    <qresource prefix="/">'
    find images icons qss -type f | LC_ALL=C sort | sed 's|.*|        <file>&</file>|'
    echo '    </qresource>'
    echo '</RCC>'
} >orvana.qrc
