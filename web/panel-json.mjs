// Turns the panel that the plug-in builds, as `brivane-host --panel` prints it, into the page's
// panel.json: captions, kinds, ranges, defaults and list rows come from the plug-in itself.
//
//   brivane-host -i page.png --panel | node web/panel-json.mjs > web/dist/panel.json
import { readFileSync } from 'node:fs';

const items = [];
for (const line of readFileSync(0, 'utf8').split('\n')) {
  const item = line.match(/^\s+(\d+)\s+(\w+)\s+\S\s+"([^"]*)" = (\S+)\s+\((.*)\)$/);
  if (item) {
    const [, id, kind, caption, , detail] = item;
    const entry = { id: Number(id), kind, caption };
    const range = detail.match(/^(-?[\d.]+) \.\. (-?[\d.]+), default (\S+)$/);
    if (range) Object.assign(entry, { min: Number(range[1]), max: Number(range[2]), default: Number(range[3]) });
    const plain = detail.match(/^default (\S+)$/);
    if (plain) entry.default = plain[1] === 'true' ? true : plain[1] === 'false' ? false : Number(plain[1]);
    if (kind === 'list') entry.rows = [];
    items.push(entry);
    continue;
  }
  const row = line.match(/^\s+(\d+): "([^"]*)"$/);
  if (row && items.length) items[items.length - 1].rows.push(row[2]);
}
if (items.length === 0) throw new Error('no panel items in the input');
process.stdout.write(JSON.stringify(items, null, 1) + '\n');
