// What goes wrong around the page: hostile texts, modems that go, sessions that end, a router that does not answer.
import assert from 'node:assert/strict';
import { describe, test } from 'node:test';
import {
  ROUND_MS,
  ask,
  button,
  eventually,
  nextRound,
  open,
  openSignedIn,
  shows,
  showsNot,
  signIn,
  useStage,
} from './stage.js';

useStage();

const MARKUP = '<img src=x onerror="document.title=\'hit\'"><script>document.title="hit"</script><b>bold</b>&lt;i&gt;';
const message = (from, text) =>
  `From: ${from}\nFrom_TOA: 91 international, ISDN/telephone\nSent: 26-11-21 10:00:00\n` +
  `Alphabet: UTF-8\n\n${text}\n`;

// Nothing of the markup has become part of the document.
async function isHarmless(page) {
  assert.equal(await page.locator('main img, main script, main b, main i, main style').count(), 0);
  assert.ok(!(await page.title()).includes('hit'));
}

describe('texts from outside are shown as they are', () => {
  test('in a message', async (t) => {
    const page = await openSignedIn(t, { hash: '#/messages' });
    await ask('write', {
      path: '/etc/spool/sms/incoming/VMS99.evil',
      text: message('<u>Bank</u>', `${MARKUP}\n${MARKUP}`),
    });
    await nextRound(page);
    const item = page.locator('.messages li').first();
    assert.equal(await item.locator('.from').textContent(), '<u>Bank</u>');
    assert.equal(await item.locator('.body').textContent(), `${MARKUP}\n${MARKUP}`);
    assert.equal(await page.locator('main u').count(), 0);
    await isHarmless(page);
    await button(page, /^Delete: message from <u>Bank/).click();
    await shows(page, 'The message from <u>Bank</u> cannot be brought back.');
    assert.equal(await page.locator('dialog u').count(), 0);
  });

  test('however long a word of a message is, and whatever its name', async (t) => {
    const page = await openSignedIn(t, { hash: '#/messages', size: { width: 320, height: 640 } });
    await ask('write', {
      path: '/etc/spool/sms/incoming/VMS99."><b>',
      text: message('W'.repeat(200), 'W'.repeat(600)),
    });
    await nextRound(page);
    assert.equal(await page.locator('.messages li').first().locator('.body').textContent(), 'W'.repeat(600));
    assert.ok(await page.evaluate(() => document.documentElement.scrollWidth <= innerWidth));
    await isHarmless(page);
  });

  test('in what a modem says of itself, of its operator and of its cells', async (t) => {
    const page = await open(t, { hash: '#/modem/1-1.2' });
    await ask('write', { path: '/tmp/modem.1-1.2/modem-name', text: MARKUP.slice(0, 60) });
    await signIn(page);
    await shows(page, 'Updated');
    await ask('reply', {
      bus: '1-1.2',
      command: 'AT+QENG="servingcell"',
      text:
        '\n+QENG: "servingcell","<b>x</b>","LTE","FDD",262,' +
        '<i>2</i>,<b>1</b>,__proto__,constructor,<b>3</b>,5,5,toString,-98,-9,-70,13,29\n\nOK\n',
    });
    await nextRound(page);
    const row = await page.locator('tbody tr').first().innerText();
    assert.deepEqual(row.split(/\s+/).slice(1, 4), ['<b>3</b>', 'constructor', '__proto__']);
    await shows(page, MARKUP.slice(0, 60));
    await isHarmless(page);
  });
});

describe('a modem that goes', () => {
  test('is told, stays as a gone one, and is told again when it is back', async (t) => {
    const page = await openSignedIn(t);
    await ask('unplug', { bus: '2-1.2' });
    await nextRound(page);
    const card = page.locator('.modem').nth(1);
    await page.getByRole('status').getByText('EP06 on bus 2-1.2 has gone.').waitFor();
    await card.getByText(/^It left its place at \d\d:\d\d/).waitFor();
    assert.equal(await card.locator('.chip').textContent(), 'Gone');
    assert.equal(await card.locator('.bars').isVisible(), false);
    assert.equal(await page.locator('.modem').first().locator('.chip').textContent(), 'Connected');
    await ask('plug', { bus: '2-1.2' });
    await nextRound(page);
    await page.getByRole('status').getByText('EP06 on bus 2-1.2 is back.').waitFor();
    assert.equal(await card.locator('.chip').textContent(), 'Not connected');
  });

  test('while one looks at it, can be asked nothing', async (t) => {
    const page = await openSignedIn(t, { hash: '#/modem/2-1.2' });
    await page.getByRole('rowheader', { name: 'Serving' }).waitFor();
    await ask('unplug', { bus: '2-1.2' });
    await nextRound(page);
    await shows(page, 'It left its place at');
    assert.equal(await page.locator('tbody tr').count(), 0);
    assert.equal(await button(page, 'Restart…').getAttribute('aria-disabled'), 'true');
    await button(page, 'Restart…').click({ force: true });
    assert.equal(await page.getByRole('dialog').isVisible(), false);
    assert.ok(!(await ask('calls')).includes('reset'));
  });

  test('as the last one, leaves a page that waits for it', async (t) => {
    const page = await openSignedIn(t);
    for (const bus of ['1-1.2', '2-1.2']) {
      await ask('unplug', { bus });
    }
    await nextRound(page);
    assert.deepEqual(await page.locator('.chip').allTextContents(), ['Gone', 'Gone']);
    await page.reload();
    await shows(page, 'No modem is there.');
    await ask('plug', { bus: '1-1.2' });
    await nextRound(page);
    await shows(page, 'EC25');
    await showsNot(page, 'No modem is there.');
  });
});

describe('a session that ends', () => {
  test('leads to the form with a sentence, and from there back to the same view', async (t) => {
    const page = await openSignedIn(t, { hash: '#/modem/1-1.2' });
    await ask('expire');
    await page.clock.fastForward(ROUND_MS);
    await page.getByRole('status').getByText('Your session has ended. Please sign in again.').waitFor();
    assert.equal(await page.evaluate(() => document.activeElement.id), 'password');
    assert.equal(await page.getByRole('navigation').isVisible(), false);
    assert.equal(await page.evaluate(() => sessionStorage.getItem('vela_modem.session')), null);
    await signIn(page);
    await page.getByRole('heading', { level: 1, name: 'EC25' }).waitFor();
  });

  test('in the middle of a question leads there, too', async (t) => {
    const page = await openSignedIn(t, { hash: '#/modem/1-1.2' });
    await button(page, 'Restart…').click();
    await ask('expire');
    await page.getByRole('dialog').getByRole('button', { name: 'Restart' }).click();
    await shows(page, 'Your session has ended. Please sign in again.');
  });
});

describe('who may only look', () => {
  test('is offered nothing else', async (t) => {
    const page = await openSignedIn(t, { user: 'reader', hash: '#/modem/2-1.2' });
    await shows(page, 'You may look, but not change anything.');
    assert.deepEqual(await page.getByRole('button').allTextContents(), ['Sign out']);
    await page.getByRole('link', { name: /^Messages/ }).click();
    await shows(page, 'Your data volume is 10 GB.');
    assert.deepEqual(await page.getByRole('button').allTextContents(), ['Sign out']);
    const calls = await ask('calls');
    assert.deepEqual(
      calls.filter((name) => !['info', 'app_brief_info', 'cells_get', 'sms_list'].includes(name)),
      [],
    );
  });
});

describe('a router that does not answer', () => {
  test('is told in words, with what was known before, and tried again', async (t) => {
    const page = await openSignedIn(t, { expected: [/ERR_FAILED/] });
    await page.route('**/ubus', (route) => route.abort());
    await page.clock.fastForward(ROUND_MS);
    await page.getByRole('alert').getByText('The router does not answer. What is shown may be old.').waitFor();
    await shows(page, 'EC25');
    await page.unroute('**/ubus');
    await nextRound(page);
    await showsNot(page, 'The router does not answer.');
  });

  for (const [name, reply, told] of [
    [
      'has an error of its own',
      { status: 502, body: 'Bad Gateway' },
      'The web server of the router answered with 502.',
    ],
    ['sends something else', { body: '<html>' }, 'The router does not answer.'],
    ['takes too long', { json: { result: [7] } }, 'The modem took too long to answer.'],
    [
      'has no such method',
      { json: { result: [3] } },
      'The router does not know this request. Is the package up to date?',
    ],
    ['fails without a word', { json: { result: [9] } }, 'The router could not do it (status 9).'],
  ]) {
    test(`or ${name}, says so`, async (t) => {
      const page = await openSignedIn(t, { expected: [/502/] });
      await page.route('**/ubus', (route) => route.fulfill(reply));
      await page.clock.fastForward(ROUND_MS);
      await page.getByRole('alert').getByText(told).waitFor();
    });
  }

  test('at signing in, says what is missing', async (t) => {
    const page = await open(t);
    await ask('out_of_order', { value: true });
    await page.getByLabel('Password').fill('the password');
    await button(page, 'Sign in').click();
    await shows(page, 'The modem service is not on the bus. Is vela-modem-rpcd installed and rpcd running?');
  });
});

describe('asking', () => {
  test('is for the view on the screen alone, and rests while nobody looks', async (t) => {
    const page = await openSignedIn(t);
    assert.deepEqual(await ask('calls'), ['info']);
    await nextRound(page);
    assert.deepEqual(await ask('calls'), ['app_brief_info']);
    await page.evaluate(() => {
      Object.defineProperty(document, 'hidden', { configurable: true, value: true });
      document.dispatchEvent(new Event('visibilitychange'));
    });
    const before = await page.locator('#fresh').textContent();
    await page.clock.fastForward(10 * ROUND_MS);
    assert.deepEqual(await ask('calls'), []);
    await page.evaluate(() => {
      delete document.hidden;
      document.dispatchEvent(new Event('visibilitychange'));
    });
    await eventually(async () => (await page.locator('#fresh').textContent()) !== before, 'the questions on return');
    assert.deepEqual(await ask('calls'), ['info']); // after more than a minute
    await page.getByRole('link', { name: 'EC25' }).click();
    await page.getByRole('rowheader', { name: 'Serving' }).waitFor();
    assert.deepEqual(await ask('calls'), ['app_brief_info', 'cells_get']);
  });
});
