// That everybody can use the page: with a keyboard, a screen reader, a phone, in light and dark; and that it is small.
import assert from 'node:assert/strict';
import { readFile, readdir } from 'node:fs/promises';
import { createRequire } from 'node:module';
import { describe, test } from 'node:test';
import { PHONE, WIDE, ask, button, nextRound, open, openSignedIn, shows, useStage } from './stage.js';

const PAGE = new URL('../../www/', import.meta.url);
const LARGEST = 60000;
const axe = await readFile(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');

useStage();

const focused = (page) => page.evaluate(() => document.activeElement.textContent.trim() || document.activeElement.id);

// Presses Tab until this has the focus.
async function tabTo(page, text) {
  for (let count = 0; count < 40; count++) {
    await page.keyboard.press('Tab');
    if ((await focused(page)).startsWith(text)) {
      return;
    }
  }
  assert.fail(`no way to ${text} by the keyboard`);
}

async function checkWithAxe(page) {
  await page.evaluate(axe);
  const { violations } = await page.evaluate(() => globalThis.axe.run());
  assert.deepEqual(
    violations.map(({ id, nodes }) => [id, ...nodes.map(({ html }) => html)]),
    [],
  );
}

// Nothing is cut off or has to be scrolled to at the side, and what is pressed is large enough for a finger.
async function checkFits(page) {
  const { width, inner, small } = await page.evaluate(() => ({
    width: document.documentElement.scrollWidth,
    inner: innerWidth,
    small: [...document.querySelectorAll('button, input, nav a')]
      .filter((one) => one.checkVisibility())
      .filter((one) => one.getBoundingClientRect().height < 44)
      .map((one) => one.textContent),
  }));
  assert.ok(width <= inner, `${width} wide in ${inner}`);
  assert.deepEqual(small, []);
}

test('the page is small, is written for one place only, and takes nothing from elsewhere', async () => {
  let size = 0;
  for (const name of await readdir(PAGE)) {
    const text = await readFile(new URL(name, PAGE), 'utf8');
    size += Buffer.byteLength(text);
    assert.deepEqual(text.match(/\bhttps?:\/\/(?!www\.w3\.org\/2000\/svg)\S*/g), null, name);
    assert.ok(!/innerHTML|outerHTML|insertAdjacentHTML|document\.write|\beval\b/.test(text), name);
  }
  assert.ok(size < LARGEST, `${size} bytes`);
});

test('the policy of the page forbids scripts, styles and requests from elsewhere', async (t) => {
  const page = await open(t, { expected: [/Content Security Policy/, /Content-Security-Policy/] });
  const ran = await page.evaluate(async () => {
    const script = document.createElement('script');
    script.textContent = 'document.body.dataset.ran = "yes"';
    document.body.append(script);
    const elsewhere = await fetch('data:text/plain,x').then(
      () => 'asked',
      () => 'refused',
    );
    return [document.body.dataset.ran, elsewhere];
  });
  assert.deepEqual(ran, [undefined, 'refused']);
});

for (const [name, size, scheme] of [
  ['a wide light screen', WIDE, 'light'],
  ['a dark phone', PHONE, 'dark'],
]) {
  describe(`on ${name}`, () => {
    const options = { size, scheme };
    test('the form to sign in can be read and used by all', async (t) => {
      const page = await open(t, options);
      await button(page, 'Sign in').click();
      await checkFits(page);
      await checkWithAxe(page);
    });

    test('the modems can', async (t) => {
      const page = await openSignedIn(t, options);
      await ask('unplug', { bus: '2-1.2' });
      await nextRound(page);
      await shows(page, 'Gone');
      await checkFits(page);
      await checkWithAxe(page);
      const background = await page.evaluate(() => getComputedStyle(document.body).backgroundColor);
      const brightness = Math.max(...background.match(/\d+/g).map(Number));
      assert.equal(brightness > 128, scheme === 'light', background);
    });

    test('a modem can, and the question before its restart', async (t) => {
      const page = await openSignedIn(t, { ...options, hash: '#/modem/1-1.2' });
      await page.getByRole('rowheader', { name: 'Serving' }).waitFor();
      await checkFits(page);
      await checkWithAxe(page);
      await button(page, 'Restart…').click();
      await checkWithAxe(page);
    });

    test('the messages can', async (t) => {
      const page = await openSignedIn(t, { ...options, hash: '#/messages' });
      await page.locator('.messages li').first().waitFor();
      await button(page, 'Send').click();
      await shows(page, 'The number may have digits only');
      await checkFits(page);
      await checkWithAxe(page);
    });
  });
}

test('everything can be reached and done with the keyboard alone', async (t) => {
  const page = await open(t);
  await page.keyboard.type('the password');
  await page.keyboard.press('Enter');
  await page.getByText(/^Updated/).waitFor({ state: 'attached' });
  assert.equal(await focused(page), 'Modems'); // the heading
  await tabTo(page, 'EP06');
  await page.keyboard.press('Enter');
  await page.getByRole('heading', { level: 1, name: 'EP06' }).waitFor();
  assert.equal(await page.evaluate(() => document.activeElement.tagName), 'H1');
  await tabTo(page, 'Connect');
  await page.keyboard.press('Enter');
  await shows(page, 'The connection is being made.');
  await tabTo(page, 'Restart…');
  await page.keyboard.press('Space');
  await page.getByRole('dialog').waitFor();
  await page.keyboard.press('Escape');
  assert.equal(await focused(page), 'Restart…');
  await page.getByRole('link', { name: 'Skip to the content' }).focus();
  await page.keyboard.press('Enter');
  assert.equal(await page.evaluate(() => document.activeElement.id), 'main');
  await page.getByRole('link', { name: 'vela_modem' }).focus();
  await tabTo(page, 'Messages');
  await page.keyboard.press('Enter');
  await page.getByRole('heading', { level: 1, name: 'Messages' }).waitFor();
  await tabTo(page, 'Mark as read');
  await page.keyboard.press('Enter');
  await shows(page, 'The message is marked as read.');
  await tabTo(page, 'number');
  await page.keyboard.type('+491700000018');
  await page.keyboard.press('Tab');
  await page.keyboard.type('hello');
  await page.keyboard.press('Tab');
  await page.keyboard.press('Enter');
  await shows(page, 'has been handed over for sending.');
});

test('what is not new is not said again, and the focus stays where it is while the page asks', async (t) => {
  const page = await openSignedIn(t, { hash: '#/messages' });
  await page.getByLabel('Text').fill('a draft');
  await page.getByLabel('Text').focus();
  await page.evaluate(() => {
    globalThis.said = [];
    new MutationObserver((changes) => globalThis.said.push(...changes.map(({ target }) => target.textContent))).observe(
      document.querySelector('.notices'),
      { subtree: true, childList: true, characterData: true },
    );
  });
  await nextRound(page);
  assert.deepEqual(await page.evaluate(() => globalThis.said), []);
  assert.equal(await page.evaluate(() => document.activeElement.id), 'text');
  assert.equal(await page.getByLabel('Text').inputValue(), 'a draft');
});

test('the focus stays in a message while others come and go', async (t) => {
  const page = await openSignedIn(t, { hash: '#/messages' });
  const remove = button(page, /^Delete: message from \+391700000002/);
  await remove.focus();
  await ask('remove', { path: '/etc/spool/sms/incoming/VMS99.k3Yt0w' });
  await ask('write', { path: '/etc/spool/sms/incoming/VMS99.new', text: 'From: 1\nSent: 26-11-22 10:00:00\n\nnew\n' });
  await nextRound(page);
  assert.equal(await page.locator('.messages li').count(), 3);
  assert.ok(await remove.evaluate((node) => node === document.activeElement));
});
