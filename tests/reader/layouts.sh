#!/usr/bin/env bash
# Counts how many of N converted decks LibreOffice Impress opens in each
# archive layout, as TestReader opens one: soffice --headless --convert-to pdf,
# which writes a PDF with one page per slide for a deck it loads. The README's
# numbers come from it (30 decks).
# Usage: tests/reader/layouts.sh [PROGRAM [N]]    (PROGRAM: build/deckwright)
set -euo pipefail
program="$(realpath "${1:-build/deckwright}")"
count="${2:-30}"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
export HOME="$work/home" XDG_RUNTIME_DIR="$work/runtime" XDG_CONFIG_HOME="$work/config"
mkdir -p "$HOME" && mkdir -m 0700 "$XDG_RUNTIME_DIR"

# A Keynote '08 package of SLIDES slides, each with a titled shape (what the
# reader needs to draw it), and some media: deck FOLDER TITLE SLIDES.
deck() {
    mkdir -p "$1/Data" "$1/QuickLook"
    {
        printf '<?xml version="1.0" encoding="UTF-8"?>\n<key:presentation xmlns:key="http://developer.apple.com/namespaces/keynote2" xmlns:sf="http://developer.apple.com/namespaces/sf" xmlns:sfa="http://developer.apple.com/namespaces/sfa" key:version="72007061400" key:title="%s">\n<key:size sfa:w="1024" sfa:h="768"/>\n<key:slide-list>\n' "$2"
        for n in $(seq "$3"); do
            printf '<key:slide><key:page><sf:layers><sf:layer><sf:drawables><sf:shape><sf:geometry><sf:naturalSize sfa:w="900" sfa:h="120"/><sf:position sfa:x="62" sfa:y="40"/></sf:geometry><sf:path><sf:bezier-path><sf:bezier sfa:path="M 0 0 L 900 0 L 900 120 L 0 120 Z"/></sf:bezier-path></sf:path><sf:text><sf:text-storage><sf:text-body><sf:p>%s, slide %d</sf:p></sf:text-body></sf:text-storage></sf:text></sf:shape></sf:drawables></sf:layer></sf:layers></key:page></key:slide>\n' "$2" "$n"
        done
        printf '</key:slide-list>\n</key:presentation>\n'
    } | gzip -n >"$1/index.apxl.gz"
    head -c 40000 /dev/urandom >"$1/Data/photo.jpg"
    head -c 3000 /dev/urandom >"$1/QuickLook/Thumbnail.jpg"
}

for i in $(seq "$count"); do
    deck "$work/in/Deck $i.key" "Deck $i" $((i % 7 + 1))
done
for layout in reference root; do
    mkdir -p "$work/$layout/out" "$work/$layout/pdf"
    "$program" convert --layout "$layout" --output "$work/$layout/out" "$work/in" >/dev/null
    soffice "-env:UserInstallation=file://$work/profile" --headless --convert-to pdf \
        --outdir "$work/$layout/pdf" "$work/$layout/out"/*.key >"$work/$layout/soffice.log" 2>&1 || true
    opened=0
    for i in $(seq "$count"); do
        pdf="$work/$layout/pdf/Deck $i.pdf"
        pages=0
        [[ -f "$pdf" ]] && pages=$(grep -aoE '/Type\s*/Page([^A-Za-z]|$)' "$pdf" | wc -l)
        ((pages == i % 7 + 1)) && opened=$((opened + 1))
    done
    echo "$layout: $opened of $count decks opened in LibreOffice"
done
