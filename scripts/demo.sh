#!/usr/bin/env bash
# Builds hlsvtt, segments the bundled example, a Windows-1252 SRT file and a small movie made
# here by ffmpeg (two subtitle tracks) into /tmp/hlsvtt-demo with 10-second segments, and shows the result.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh normal >/dev/null
out=/tmp/hlsvtt-demo
rm -rf "$out" && mkdir -p "$out/vtt" "$out/movie"
build/hlsvtt -t 10 -f "$out/vtt" examples/sample.vtt
echo
echo "== $out/vtt"
ls "$out/vtt"
echo "== $out/vtt/prog_index.m3u8"
cat "$out/vtt/prog_index.m3u8"

# An SRT file in Windows-1252, as many are: converted to UTF-8 on the way in.
mkdir -p "$out/cp1252"
printf '1\n00:00:01,000 --> 00:00:03,000\nCaf\xe9 cr\xe8me, \x93d\xe9j\xe0 vu\x94\n\n' >"$out/cafe.srt"
echo
build/hlsvtt -t 10 -f "$out/cp1252" --source-encoding=windows-1252 "$out/cafe.srt"
echo "== $out/cp1252/fileSequence0.webvtt"
cat "$out/cp1252/fileSequence0.webvtt"

# The movie: 30 s of a tiny video with an English and a French subtitle track.
printf '1\n00:00:01,000 --> 00:00:03,000\n<b>Hello</b> and <i>welcome</i>\n\n2\n00:00:12,000 --> 00:00:14,500\nFish & chips\n\n3\n00:00:25,000 --> 00:00:27,000\nGoodbye\n' >"$out/en.srt"
printf '1\n00:00:01,000 --> 00:00:03,000\n<b>Bonjour</b> et <i>bienvenue</i>\n\n2\n00:00:25,000 --> 00:00:27,000\nAu revoir\n' >"$out/fr.srt"
ffmpeg -nostdin -v error -f lavfi -i color=size=16x16:rate=1:duration=30 -i "$out/en.srt" \
  -i "$out/fr.srt" -map 0 -map 1 -map 2 -c:v mpeg4 -c:s mov_text \
  -metadata:s:s:0 language=eng -metadata:s:s:0 title=English -metadata:s:s:1 language=fra \
  -disposition:s:1 0 "$out/movie.mp4"
echo
build/hlsvtt -t 10 -f "$out/movie" "$out/movie.mp4"
echo
echo "== $out/movie"
(cd "$out/movie" && find . -type f | sort)
echo "== $out/movie/subtitle_media.m3u8"
cat "$out/movie/subtitle_media.m3u8"
echo "== $out/movie/en1/prog_index.m3u8"
cat "$out/movie/en1/prog_index.m3u8"
echo "== $out/movie/en1/fileSequence1.webvtt"
cat "$out/movie/en1/fileSequence1.webvtt"
