// What both test pages share: loading a player and driving it through one small interface. Each
// adapter answers start(), renditions() (names in playlist order) and select(name), which makes
// that rendition the one shown on a text track of the video labelled with its name.
'use strict';

function loadScript(url) {
  return new Promise((resolve, reject) => {
    const s = document.createElement('script');
    s.src = url;
    s.onload = resolve;
    s.onerror = () => reject(new Error('cannot load ' + url));
    document.head.appendChild(s);
  });
}

function once(target, type) {
  return new Promise((resolve) => target.addEventListener(type, resolve, { once: true }));
}

// hls.js with cues on the video's own text tracks; `config` adds to its configuration.
async function hlsjsAdapter(video, src, errors, config = {}) {
  await loadScript('/lib/hls.js/hls.js');
  const hls = new Hls({ subtitleDisplay: true, enableWebVTT: true, renderTextTracksNatively: true, ...config });
  hls.on(Hls.Events.ERROR, (_e, d) => { if (d.fatal) errors.push('hls.js: ' + d.type + ' ' + d.details); });
  return {
    async start() {
      const parsed = new Promise((resolve) => hls.once(Hls.Events.MANIFEST_PARSED, resolve));
      hls.attachMedia(video);
      hls.loadSource(src);
      await parsed;
    },
    renditions() { return hls.subtitleTracks.map((t) => t.name); },
    select(name) {
      const index = hls.subtitleTracks.findIndex((t) => t.name === name);
      if (index < 0) throw new Error('no rendition ' + name);
      hls.subtitleDisplay = true;
      hls.subtitleTrack = index;
    },
  };
}

// Shaka Player; `hooks` may give its configuration (default: cues on the video's own text
// tracks), and what to do before attaching, after loading and after selecting.
async function shakaAdapter(video, src, errors, hooks = {}) {
  await loadScript('/lib/shaka-player/shaka-player.compiled.js');
  shaka.polyfill.installAll();
  const player = new shaka.Player();
  player.configure(hooks.configuration
    ? hooks.configuration()
    : { textDisplayFactory: (p) => new shaka.text.NativeTextDisplayer(p) });
  player.addEventListener('error', (e) => errors.push('shaka: ' + e.detail.code));
  return {
    async start() {
      if (hooks.beforeAttach) hooks.beforeAttach(player);
      await player.attach(video);
      await player.load(src);
      if (hooks.afterLoad) await hooks.afterLoad(player);
    },
    renditions() { return player.getTextTracks().map((t) => t.label); },
    select(name) {
      const track = player.getTextTracks().find((t) => t.label === name);
      if (!track) throw new Error('no rendition ' + name);
      player.selectTextTrack(track);
      if (hooks.afterSelect) hooks.afterSelect(player);
    },
  };
}

// The video's text track labelled `name` once it shows; fails after five seconds.
async function showingTrack(video, name) {
  for (const deadline = Date.now() + 5000; ;) {
    const track = Array.from(video.textTracks).find((t) => t.label === name && t.mode === 'showing');
    if (track) return track;
    if (Date.now() > deadline) throw new Error('no text track shows ' + name);
    await new Promise((r) => setTimeout(r, 20));
  }
}
