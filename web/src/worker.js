// One engine session off the page's main thread. The page keeps two: one for the live preview and
// one, made afresh, for each full-size render, which the cancel button simply terminates (the engine
// runs to the end of a pass without returning to this worker's message loop).
importScripts('brivane.js');

let session = null;
const waiting = [];

createBrivane().then((Module) => {
  session = new Module.EffectSession();
  postMessage({ op: 'ready' });
  for (const message of waiting.splice(0)) handle(message);
});

onmessage = (event) => (session ? handle(event.data) : waiting.push(event.data));

function reply(id, body, transfer = []) {
  postMessage({ id, ...body }, transfer);
}

async function handle({ id, op, ...args }) {
  try {
    switch (op) {
      case 'layer':
        session.setLayer(args.width, args.height, new Uint8Array(args.pixels));
        return reply(id, { ok: true });
      case 'set':
        return reply(id, { ok: session.setValue(args.key, String(args.text)), refusal: session.refusal() });
      case 'preset':
        return reply(id, {
          given: session.loadPreset(args.text), refusal: session.refusal(), values: session.values(),
        });
      case 'limits':
        return reply(id, session.limits());
      case 'guide':
        return reply(id, { error: session.addGuide(args.name, args.svg) });
      case 'values':
        return reply(id, { values: session.values(), target: session.target(), preset: session.presetText() });
      case 'preview': {
        const started = performance.now();
        const [r, g, b] = args.color;
        const layer = session.renderPreview(r, g, b);
        return reply(id, { ...layer, target: session.target(), took: performance.now() - started },
                     [layer.pixels.buffer]);
      }
      case 'render': {
        const [r, g, b] = args.color;
        let shown = -1;
        const started = performance.now();
        const ok = session.render(r, g, b, (total, done) => {
          const percent = total > 0 ? Math.floor((100 * done) / total) : 0;
          if (percent !== shown) postMessage({ op: 'progress', done, total, percent: (shown = percent) });
          return true;
        });
        return reply(id, { ok, took: performance.now() - started });
      }
      case 'png': {
        // The engine writes the rows and the file around them; the browser's own deflate squeezes them.
        const rows = session.pngRows(args.over);
        const stream = new Blob([rows]).stream().pipeThrough(new CompressionStream('deflate'));
        const deflated = new Uint8Array(await new Response(stream).arrayBuffer());
        const file = session.pngFile(deflated);
        return reply(id, { file }, [file.buffer]);
      }
      default:
        return reply(id, { error: `unknown request ${op}` });
    }
  } catch (error) {
    return reply(id, { error: String(error) });
  }
}
