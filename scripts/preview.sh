#!/usr/bin/env bash
# Serves an hlsvtt output directory with a page that plays it over a video with hls.js, so that a
# person can look at the subtitles in a browser.
#
# Usage: scripts/preview.sh OUTDIR [VIDEO]
#   OUTDIR  holds subtitle_media.m3u8 (a movie source: every stream it lists is offered) or one
#           media playlist, such as prog_index.m3u8 (a WebVTT or SRT source).
#   VIDEO   an HLS media playlist (.m3u8), served as it is, or any file ffmpeg reads, turned into
#           MPEG-TS segments. Without it: a test pattern as long as the subtitles whose first
#           frame is at MPEG-TS 900000 (10 s), hlsvtt's default -m.
# Listens on 127.0.0.1 only (port PORT, default: one the system picks) until Ctrl-C.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
if [ $# -lt 1 ] || [ $# -gt 2 ] || [ ! -d "$1" ]; then
  echo "usage: $0 OUTDIR [VIDEO]" >&2
  exit 2
fi
outdir="$(cd "$1" && pwd)"
video="${2:-}"

# Subtitle renditions, as EXT-X-MEDIA lines with URIs under /subs/.
if [ -f "$outdir/subtitle_media.m3u8" ]; then
  media="$(grep '^#EXT-X-MEDIA:' "$outdir/subtitle_media.m3u8" | sed 's|URI="|URI="/subs/|')"
  first="$(printf '%s\n' "$media" | head -n1 | sed -n 's|.*URI="/subs/\([^"]*\)".*|\1|p')"
else
  playlists=("$outdir"/*.m3u8)
  if [ "${#playlists[@]}" -ne 1 ] || [ ! -f "${playlists[0]}" ]; then
    echo "$outdir: expected subtitle_media.m3u8 or exactly one playlist" >&2
    exit 2
  fi
  first="$(basename "${playlists[0]}")"
  media="#EXT-X-MEDIA:TYPE=SUBTITLES,GROUP-ID=\"subtitles\",NAME=\"subtitles\",DEFAULT=YES,AUTOSELECT=YES,LANGUAGE=\"und\",URI=\"/subs/$first\""
fi
if [ -z "$media" ] || [ ! -f "$outdir/$first" ]; then
  echo "$outdir: no subtitle playlist to play" >&2
  exit 2
fi
group="$(printf '%s\n' "$media" | head -n1 | sed -n 's|.*GROUP-ID="\([^"]*\)".*|\1|p')"

"$root/scripts/install-clients.sh"
work="$(mktemp -d "${TMPDIR:-/tmp}/hlsvtt-preview.XXXXXX")"
server=""
cleanup() {
  [ -n "$server" ] && kill "$server" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# The video, as an HLS media playlist served under /video/.
segment_video() { # ffmpeg input arguments...
  mkdir -p "$work/video"
  ffmpeg -hide_banner -loglevel error "$@" -f hls -hls_time 4 -hls_playlist_type vod \
    -hls_segment_filename "$work/video/v%05d.ts" "$work/video/video.m3u8"
  videodir="$work/video"
  videoname="video.m3u8"
}
if [ -z "$video" ]; then
  seconds="$(awk -F'[:,]' '/^#EXTINF:/ { s += $2 } END { printf "%d", s + 3 }' "$outdir/$first")"
  echo "making a ${seconds} s test video"
  segment_video -f lavfi -i "testsrc2=size=640x360:rate=25" -t "$seconds" -c:v libx264 \
    -preset ultrafast -pix_fmt yuv420p -g 50 -muxdelay 0 -output_ts_offset 10
elif [ "${video##*.}" = "m3u8" ]; then
  videodir="$(cd "$(dirname "$video")" && pwd)"
  videoname="$(basename "$video")"
else
  codec="$(ffprobe -v error -select_streams v:0 -show_entries stream=codec_name -of csv=p=0 "$video")"
  vcodec=(-c:v libx264 -preset veryfast -pix_fmt yuv420p)
  [ "$codec" = "h264" ] && vcodec=(-c:v copy)
  echo "segmenting $video"
  segment_video -i "$video" -map 0:v:0 -map '0:a:0?' "${vcodec[@]}" -c:a aac
fi

# Whether the cues line up: the players place a cue at its time plus (MPEGTS - first video PTS)
# divided by 90000.
first_segment="$(grep -v '^#' "$videodir/$videoname" | grep -m1 . || true)"
if [ -n "$first_segment" ] && [ -f "$videodir/$first_segment" ]; then
  pts="$(ffprobe -v error -select_streams v:0 -show_entries packet=pts -of csv=p=0 \
    -read_intervals '%+#30' "$videodir/$first_segment" | tr -d , | grep . | sort -n | head -n1 || true)"
  sub_segment="$(grep -v '^#' "$outdir/$first" | grep -m1 . || true)"
  mpegts=""
  if [ -n "$sub_segment" ] && [ -f "$outdir/$(dirname "$first")/$sub_segment" ]; then
    mpegts="$(sed -n 's/^X-TIMESTAMP-MAP=MPEGTS:\([0-9]*\),.*/\1/p' "$outdir/$(dirname "$first")/$sub_segment" | head -n1)"
  fi
  if [ -n "$pts" ] && [ -n "$mpegts" ] && [ "$pts" != "$mpegts" ]; then
    echo "note: the video starts at MPEG-TS $pts but the subtitles use $mpegts; cues show" \
      "$(awk -v a="$mpegts" -v b="$pts" 'BEGIN { printf "%.3f", (a - b) / 90000 }') s late" \
      "(segment again with -m $pts to line them up)"
  fi
fi

cat >"$work/master.m3u8" <<EOF
#EXTM3U
#EXT-X-VERSION:3
$media
#EXT-X-STREAM-INF:BANDWIDTH=2000000,SUBTITLES="$group"
/video/$videoname
EOF

cat >"$work/index.html" <<'EOF'
<!doctype html>
<html>
<head><meta charset="utf-8"><title>hlsvtt preview</title>
<style>
  body { background: #222; color: #ddd; font-family: sans-serif; margin: 2em; }
  video { width: 960px; max-width: 100%; background: #000; display: block; }
  select { margin: 1em 0; }
</style></head>
<body>
<video id="video" controls muted></video>
<label>Subtitles: <select id="tracks"></select></label>
<div id="status"></div>
<script src="/lib/hls.js/hls.js"></script>
<script>
const video = document.getElementById('video');
const tracks = document.getElementById('tracks');
const status = document.getElementById('status');
const hls = new Hls({ subtitleDisplay: true });
hls.on(Hls.Events.ERROR, (_e, d) => { if (d.fatal) status.textContent = 'error: ' + d.details; });
hls.on(Hls.Events.SUBTITLE_TRACKS_UPDATED, () => {
  tracks.replaceChildren(...hls.subtitleTracks.map((t, i) => new Option(t.name, i)));
  hls.subtitleTrack = 0;
});
tracks.onchange = () => { hls.subtitleTrack = Number(tracks.value); };
hls.loadSource('/master.m3u8');
hls.attachMedia(video);
</script>
</body>
</html>
EOF

node "$root/tests/players/static_server.js" "$work" "/subs=$outdir" "/video=$videodir" \
  "/lib/hls.js=$root/tests/players/node_modules/hls.js/dist" >"$work/address" &
server=$!
for _ in $(seq 50); do
  [ -s "$work/address" ] && break
  sleep 0.1
done
[ -s "$work/address" ] || { echo "the HTTP server did not start" >&2; exit 1; }
echo "open $(head -n1 "$work/address") in a browser; Ctrl-C stops"
wait "$server"
