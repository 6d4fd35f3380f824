// What the page changes: links, modems and messages, and what the router saw of it.
import assert from 'node:assert/strict';
import { describe, test } from 'node:test';
import { ROUND_MS, ask, button, eventually, openSignedIn, shows, useStage } from './stage.js';

useStage();

const sent = async () =>
  (await ask('programs')).filter(([name]) => name.endsWith('sendsms')).map((argv) => argv.slice(1));

describe('a link', () => {
  test('is made and taken down', async (t) => {
    const page = await openSignedIn(t, { hash: '#/modem/2-1.2' });
    await shows(page, 'Not connected');
    await button(page, 'Connect').first().click();
    await shows(page, 'The connection is being made.');
    await button(page, 'Disconnect').waitFor();
    assert.equal(await ask('option', { name: 'network.modem_2_1_2.disabled' }), '0');
    await button(page, 'Disconnect').click();
    await shows(page, 'The connection has been taken down.');
    await button(page, 'Connect').first().waitFor();
    assert.equal(await ask('option', { name: 'network.modem_2_1_2.disabled' }), '1');
  });

  test('is being made until what came of it is known, also where the page was just asking', async (t) => {
    const page = await openSignedIn(t, { hash: '#/modem/2-1.2' });
    await shows(page, 'Not connected');
    let up = 'off';
    let goOn;
    const held = new Promise((resolve) => {
      goOn = resolve;
    });
    await page.route('**/ubus', async (route) => {
      const method = route.request().postDataJSON().params[2];
      if (method === 'enable') {
        up = 'on';
        await route.fulfill({ json: { result: [0, { code: 0 }] } });
        return;
      }
      const response = await route.fetch();
      const reply = await response.json();
      for (const modem of reply.result[1].modems ?? []) {
        modem.up = up;
      }
      if (method === 'app_brief_info') {
        await held;
      }
      await route.fulfill({ response, json: reply });
    });
    await page.evaluate(() => {
      const chip = document.querySelector('.chip');
      globalThis.seen = [];
      new MutationObserver(() => globalThis.seen.push(chip.textContent)).observe(chip, { childList: true });
    });
    const asking = page.waitForRequest((request) => request.postDataJSON()?.params[2] === 'app_brief_info');
    await page.clock.fastForward(ROUND_MS);
    await asking;
    await button(page, 'Connect').first().click();
    goOn();
    await button(page, 'Disconnect').waitFor();
    await eventually(async () => (await page.locator('.chip').textContent()) === 'Connected', 'the link');
    assert.deepEqual(await page.evaluate(() => globalThis.seen), ['Connecting', 'Connected']);
  });

  test('is made with automatic settings where that is asked for', async (t) => {
    const page = await openSignedIn(t, { hash: '#/modem/2-1.2' });
    await button(page, 'Connect with automatic settings').click();
    await shows(page, 'The settings that fit the SIM card are being tried.');
    assert.ok((await ask('calls')).includes('auto'));
  });
});

describe('a restart', () => {
  test('is asked about first; no is the answer that is offered', async (t) => {
    const page = await openSignedIn(t, { hash: '#/modem/1-1.2' });
    await button(page, 'Restart…').click();
    const dialog = page.getByRole('dialog', { name: 'Restart EC25?' });
    await dialog.waitFor();
    assert.equal(await page.evaluate(() => document.activeElement.textContent), 'Cancel');
    await page.keyboard.press('Enter');
    await dialog.waitFor({ state: 'hidden' });
    assert.ok(!(await ask('calls')).includes('reset'));
    assert.equal(await page.evaluate(() => document.activeElement.textContent), 'Restart…');
  });

  test('restarts the modem and says so', async (t) => {
    const page = await openSignedIn(t, { hash: '#/modem/1-1.2' });
    await button(page, 'Restart…').click();
    await page.getByRole('dialog').getByRole('button', { name: 'Restart' }).click();
    await shows(page, 'Restarting');
    assert.equal(await button(page, 'Disconnect').getAttribute('aria-disabled'), 'true');
    await shows(page, 'The modem has been restarted.');
    assert.ok((await ask('calls')).includes('reset'));
    await eventually(
      async () => (await button(page, 'Disconnect').getAttribute('aria-disabled')) === 'false',
      'the buttons',
    );
  });
});

test('what takes longer than the router waits is not called a failure', async (t) => {
  const page = await openSignedIn(t, { hash: '#/modem/1-1.2' });
  await page.route('**/ubus', (route) =>
    route.request().postDataJSON().params[2] === 'reset' ? route.fulfill({ json: { result: [7] } }) : route.continue(),
  );
  await button(page, 'Restart…').click();
  await page.getByRole('dialog').getByRole('button', { name: 'Restart' }).click();
  await page.getByRole('alert').getByText('Restarting takes long. Its state here will tell how it ends.').waitFor();
});

describe('a message', () => {
  test('is marked as read', async (t) => {
    const page = await openSignedIn(t, { hash: '#/messages' });
    await button(page, /^Mark as read: message from \+491700000001/).click();
    await shows(page, 'The message is marked as read.');
    assert.deepEqual(await ask('spool'), { incoming: ['VMS99.p81sQx'], storage: ['VMS99.aa17Lm', 'VMS99.k3Yt0w'] });
    await shows(page, '1 new');
    assert.match(
      await page.evaluate(() => document.activeElement.getAttribute('aria-label')),
      /^Delete: .*491700000001/,
    );
  });

  test('is deleted once that is confirmed', async (t) => {
    const page = await openSignedIn(t, { hash: '#/messages' });
    const remove = button(page, /^Delete: message from \+491700000017/);
    await remove.click();
    await page.keyboard.press('Escape');
    await page.getByRole('dialog').waitFor({ state: 'hidden' });
    assert.equal((await ask('spool')).incoming.length, 2);
    await remove.click();
    await shows(page, 'The message from +491700000017 cannot be brought back.');
    await page.getByRole('dialog').getByRole('button', { name: 'Delete' }).click();
    await shows(page, 'The message has been deleted.');
    assert.deepEqual((await ask('spool')).incoming, ['VMS99.k3Yt0w']);
    assert.equal(await page.locator('.messages li').count(), 2);
    assert.equal(await page.evaluate(() => document.activeElement.id), 'inbox');
  });

  test('that somebody else has deleted is told in words', async (t) => {
    const page = await openSignedIn(t, { hash: '#/messages' });
    await button(page, /^Delete: message from \+491700000017/).click();
    await ask('remove', { path: '/etc/spool/sms/incoming/VMS99.p81sQx' });
    await page.getByRole('dialog').getByRole('button', { name: 'Delete' }).click();
    await shows(page, 'The message is no longer there.');
  });

  for (const [name, number, text, expected] of [
    ['abroad', '+49 170 000 0018', '10 € on Friday?', ['+491700000018', '10 € on Friday?', 'international']],
    ['at home', '0170 0000018', 'two\nlines', ['01700000018', 'two\nlines', 'national']],
    [
      'with quotes in it',
      '+491700000018',
      `it's 'quoted'; reboot #"$(reboot)`,
      ['+491700000018', `it's 'quoted'; reboot #"$(reboot)`, 'international'],
    ],
  ]) {
    test(`${name} is handed to the router's script as it was typed`, async (t) => {
      const page = await openSignedIn(t, { hash: '#/messages' });
      await page.getByLabel('Number').fill(number);
      await page.getByLabel('Text').fill(text);
      await button(page, 'Send').click();
      await shows(page, `The message to ${expected[0]} has been handed over for sending.`);
      assert.deepEqual(await sent(), [expected]);
      assert.ok(!(await ask('programs')).some(([program]) => program.endsWith('reboot')));
      assert.equal(await page.getByLabel('Text').inputValue(), '');
    });
  }

  test('that is being written while another one is sent stays', async (t) => {
    const page = await openSignedIn(t, { hash: '#/messages' });
    const text = page.getByLabel('Text');
    await page.route('**/ubus', async (route) => {
      if (route.request().postDataJSON().params[2] === 'sms_send') {
        await text.fill('the next one');
      }
      await route.continue();
    });
    await page.getByLabel('Number').fill('+491700000018');
    await text.fill('the first one');
    await button(page, 'Send').click();
    await shows(page, 'has been handed over for sending.');
    assert.equal(await text.inputValue(), 'the next one');
    assert.deepEqual(await sent(), [['+491700000018', 'the first one', 'international']]);
  });

  test('that cannot be sent is not sent, and the page says why', async (t) => {
    const page = await openSignedIn(t, { hash: '#/messages' });
    const [number, text] = [page.getByLabel('Number'), page.getByLabel('Text')];
    await text.fill('x');
    for (const wrong of ['', '12', "+4917'0000", 'a friend', '1'.repeat(21)]) {
      await number.fill(wrong);
      await button(page, 'Send').click();
      await shows(page, 'The number may have digits only, and a + before them.');
    }
    await number.fill('+491700000018');
    await text.fill('');
    await button(page, 'Send').click();
    await shows(page, 'There is no text to send.');
    await text.fill('é'.repeat(129)); // two bytes each: 283 less 13 of the number and 13 of its kind
    await shows(page, 'Characters too many: 1');
    await button(page, 'Send').click();
    await shows(page, 'The text is too long for one message.');
    assert.deepEqual(await sent(), []);
    await text.fill(`${'é'.repeat(128)}x`);
    await shows(page, 'Characters left: 0');
    await button(page, 'Send').click();
    await shows(page, 'has been handed over for sending.');
    assert.deepEqual(await sent(), [['+491700000018', `${'é'.repeat(128)}x`, 'international']]);
  });
});
