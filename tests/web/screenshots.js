// Makes the pictures of the status page for the documentation, from the same simulated router as the tests.
import assert from 'node:assert/strict';
import { writeFile } from 'node:fs/promises';
import { smaller } from './png.js';
import { PHONE, ask, endStage, nextRound, openSignedIn, startStage } from './stage.js';

const IMAGES = new URL('../../docs/images/', import.meta.url);
const LARGEST = 60000;
const ROUNDS = 48; // of measurements, for the chart

const PICTURES = [
  ['status-modems', { size: { width: 960, height: 380 }, at: '#/' }],
  ['status-modem', { size: { width: 960, height: 1080 }, at: '#/modem/1-1.2' }],
  ['status-modem-phone', { size: { ...PHONE, height: 760 }, at: '#/modem/1-1.2', scheme: 'dark' }],
  ['status-messages', { size: { width: 960, height: 620 }, at: '#/messages', rounds: 0 }],
  ['status-messages-phone', { size: { ...PHONE, height: 760 }, at: '#/messages', rounds: 0, scheme: 'dark' }],
];

async function picture(name, { at, rounds = ROUNDS, ...options }) {
  const ends = [];
  const page = await openSignedIn({ after: (end) => ends.push(end) }, options);
  for (let round = 1; round <= rounds; round++) {
    await ask('signal', { step: round });
    await nextRound(page);
  }
  await page.evaluate((hash) => {
    location.hash = hash;
  }, at);
  if (at !== '#/') {
    await page
      .locator(at === '#/messages' ? '.messages li' : 'tbody tr')
      .first()
      .waitFor();
  }
  const image = smaller(await page.screenshot({ animations: 'disabled', caret: 'hide' }));
  assert.ok(image.length <= LARGEST, `${name} is too large: ${image.length}`);
  await writeFile(new URL(`${name}.png`, IMAGES), image);
  await Promise.all(ends.map((end) => end()));
}

await startStage();
try {
  for (const [name, options] of PICTURES) {
    await picture(name, options);
  }
} finally {
  await endStage();
}
