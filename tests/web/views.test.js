// Each view, with what the simulated modems say.
import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import { describe, test } from 'node:test';
import {
  ask,
  button,
  eventually,
  factsOf,
  nextRound,
  open,
  openSignedIn,
  shows,
  signIn,
  useStage,
  users,
} from './stage.js';

const MINUS = '\u2212';
const HYPHEN = '\u2011'; // that does not break

useStage();

describe('signing in', () => {
  test('a wrong password is told in words, and the right one opens the page', async (t) => {
    const page = await open(t);
    await page.getByLabel('Password').fill('wrong');
    await button(page, 'Sign in').click();
    await shows(page, 'User name or password is wrong.');
    assert.equal(await page.evaluate(() => document.activeElement.id), 'password');
    await page.getByLabel('Password').fill('the password');
    await page.keyboard.press('Enter');
    await page.getByRole('heading', { level: 1, name: 'Modems' }).waitFor();
  });

  test('a user who may not even look is told so', async (t) => {
    const page = await open(t);
    await page.getByLabel('User name').fill('stranger');
    await page.getByLabel('Password').fill(users.stranger);
    await button(page, 'Sign in').click();
    await shows(page, 'This user may not see the modems.');
    assert.equal(await page.evaluate(() => sessionStorage.getItem('vela_modem.session')), null);
    assert.deepEqual(await ask('calls'), []);
  });

  test('a reload keeps the session, and signing out ends it on the router, too', async (t) => {
    const page = await openSignedIn(t);
    await page.reload();
    await shows(page, 'EC25');
    const sid = await page.evaluate(() => JSON.parse(sessionStorage.getItem('vela_modem.session')).id);
    await button(page, 'Sign out').click();
    await shows(page, 'You have signed out.');
    assert.equal(await page.evaluate(() => sessionStorage.getItem('vela_modem.session')), null);
    const call = (id) =>
      page.evaluate(async (session) => {
        const body = JSON.stringify({
          jsonrpc: '2.0',
          id: 1,
          method: 'call',
          params: [session, 'vela_modem', 'info', {}],
        });
        return (await (await fetch('/ubus', { method: 'POST', body })).json()).error?.code;
      }, id);
    await eventually(async () => (await call(sid)) === -32002, 'the end of the session');
  });
});

describe('all modems', () => {
  test('a card tells name, operator, generation, signal, link and SIM card', async (t) => {
    const page = await openSignedIn(t);
    const cards = page.locator('.modem');
    assert.equal(await cards.count(), 2);
    const [first, second] = [await cards.nth(0).innerText(), await cards.nth(1).innerText()];
    for (const text of [
      'EC25',
      `Vodafone.de · 4G · Bus 1${HYPHEN}1.2`,
      'Connected',
      'Good',
      `${MINUS}98 dBm`,
      'Ready',
      'Reached',
      '10.60.0.17',
    ]) {
      assert.ok(first.includes(text), `${text} in ${first}`);
    }
    for (const text of [
      'EP06',
      `WINDTRE · 4G+ · Bus 2${HYPHEN}1.2`,
      'Not connected',
      'Good',
      `${MINUS}86 dBm`,
      'Ready',
    ]) {
      assert.ok(second.includes(text), `${text} in ${second}`);
    }
    assert.ok(!second.includes('Address'));
    assert.equal(await cards.nth(0).locator('[data-on]').count(), 3);
  });

  for (const [state, reply, told] of [
    ['no SIM card', '\nERROR\n', 'There is no SIM card in this modem, or it cannot be read.'],
    ['a PIN that is missing', '\n+CPIN: SIM PIN\n\nOK\n', 'The SIM card asks for its PIN.'],
    ['a blocked SIM card', '\n+CPIN: SIM PUK\n\nOK\n', 'The SIM card is blocked and asks for its PUK.'],
  ]) {
    test(`${state} is told in a sentence`, async (t) => {
      const page = await openSignedIn(t);
      await ask('reply', { bus: '1-1.2', command: 'AT+CPIN?', text: reply });
      await nextRound(page);
      await page.locator('.modem').first().getByText(told).waitFor();
      await ask('reply', { bus: '1-1.2', command: 'AT+CPIN?', text: '\n+CPIN: READY\n\nOK\n' });
      await nextRound(page);
      await page.locator('.modem').first().getByText(told).waitFor({ state: 'hidden' });
    });
  }

  test('the state of the link follows the network daemon', async (t) => {
    const page = await openSignedIn(t);
    await ask('link', { interface: 'modem_1_1_2', state: 'pending' });
    await nextRound(page);
    await page.locator('.modem').first().getByText('Connecting').waitFor();
  });
});

describe('one modem', () => {
  test('its signal is told in words and units, and its device by what it says of itself', async (t) => {
    const page = await openSignedIn(t);
    await page.getByRole('link', { name: 'EC25' }).click();
    await page.getByRole('heading', { level: 1, name: 'EC25' }).waitFor();
    assert.equal(await page.title(), 'EC25 – vela_modem');
    const measures = await page
      .locator('.measures > div')
      .evaluateAll((rows) => rows.map((row) => row.innerText.split('\n')));
    assert.deepEqual(
      measures.map((row) => row.filter(Boolean)),
      [
        ['RSRP', `${MINUS}98 dBm`, 'Good'],
        ['RSRQ', `${MINUS}9 dB`, 'Very good'],
        ['SINR', '15', 'Good'],
        ['RSSI', `${MINUS}70 dBm`, 'Good'],
      ],
    );
    assert.deepEqual(await factsOf(page, 'Device'), {
      Model: 'EC25',
      Firmware: 'EC25EFAR06A03M4G',
      IMEI: '350000000000017',
      Place: `Bus 1${HYPHEN}1.2`,
      'AT port': '/dev/ttyUSB2',
      'Data port': '/dev/ttyUSB3',
      'QMI port': '/dev/cdc-wdm0',
    });
    assert.deepEqual(await factsOf(page, 'Connection'), {
      State: 'Connected',
      Operator: 'Vodafone.de',
      Generation: '4G',
      'SIM card': 'Ready',
      Internet: 'Reached',
      Address: '10.60.0.17',
      Gateway: '10.60.0.18',
      Received: '54.0 MB',
      Sent: '4.2 MB',
    });
  });

  test('its cells are a table: the serving one first, with its neighbours', async (t) => {
    const page = await openSignedIn(t, { hash: '#/modem/1-1.2' });
    await page.getByRole('cell', { name: '396' }).first().waitFor();
    const rows = await page
      .locator('tbody tr')
      .evaluateAll((all) => all.map((row) => [...row.cells].map((one) => one.textContent)));
    assert.equal(rows.length, 7);
    assert.deepEqual(rows[0], ['Serving', 'B3', '1250', '193', `${MINUS}98`, `${MINUS}9`, '13']);
    assert.deepEqual(rows[2], ['Neighbour', '–', '1250', '396', '–', '–', '–']);
    assert.deepEqual(await factsOf(page, 'Cells'), {
      Technology: 'LTE',
      Network: '262-02',
      'Cell ID': '2A1B21',
      Area: '2A1C',
      Bandwidth: '20 MHz',
      State: 'Idle',
    });
  });

  test('carriers that are bundled are rows of their own', async (t) => {
    const page = await openSignedIn(t, { hash: '#/modem/2-1.2' });
    await page.getByRole('rowheader', { name: 'Carrier 2' }).waitFor();
    const rows = await page
      .locator('tbody tr')
      .evaluateAll((all) => all.map((row) => row.innerText.split(/\s+/).slice(0, 4)));
    assert.deepEqual(rows.slice(0, 2), [
      ['Carrier', '1', 'B7', '3350'],
      ['Carrier', '2', 'B3', '1500'],
    ]);
  });

  test('the chart gathers the signal over time and says it in a sentence', async (t) => {
    const page = await openSignedIn(t, { hash: '#/modem/1-1.2' });
    const chart = page.getByRole('img', { name: /^RSRP/ });
    await eventually(
      async () =>
        (await chart.getAttribute('aria-label')).endsWith(`between ${MINUS}98 and ${MINUS}98 dBm, now ${MINUS}98 dBm`),
      'the first value',
    );
    await ask('signal', { step: 14 });
    await nextRound(page);
    const label = await chart.getAttribute('aria-label');
    const [, low, high, now] = /between \u2212(\d+) and \u2212(\d+) dBm, now \u2212(\d+) dBm$/.exec(label);
    assert.ok(now !== '98' && [low, high].includes(now) && [low, high].includes('98'), label);
    assert.match(await chart.locator('.line').getAttribute('d'), /^M[\d.]+ [\d.]+L[\d.]+ [\d.]+$/);
  });

  test('two signals at once are measured side by side, however often', async (t) => {
    const page = await openSignedIn(t, { hash: '#/modem/1-1.2' });
    const text = '\n+QCSQ: "LTE",70,-98,150,-9\n+QCSQ: "WCDMA",80,-90,-10\n\nOK\n';
    await ask('reply', { bus: '1-1.2', command: 'AT+QCSQ', text });
    for (let round = 0; round < 3; round++) {
      await nextRound(page);
      const names = await page.locator('.measures dt').allTextContents();
      assert.deepEqual(names, ['RSRP', 'RSRQ', 'SINR', 'RSSI', 'RSCP', 'Ec/Io', 'RSSI']);
    }
  });

  test('a value beyond all measure leaves the chart as it is drawn: with a few lines', async (t) => {
    const page = await openSignedIn(t, { hash: '#/modem/1-1.2' });
    const text = '\n+QCSQ: "LTE",70,-9999999999,150,-9\n\nOK\n';
    await ask('reply', { bus: '1-1.2', command: 'AT+QCSQ', text });
    await nextRound(page);
    await shows(page, `${MINUS}9999999999 dBm`);
    assert.equal(await page.locator('.chart .grid').count(), 9);
  });

  test('on a board that has no full report is shown by the shorter ones', async (t) => {
    const page = await open(t);
    await page.route('**/ubus', (route) =>
      route.request().postDataJSON().params[2] === 'info'
        ? route.fulfill({ json: { result: [0, { code: -17 }] } })
        : route.continue(),
    );
    await signIn(page);
    await page.getByRole('link', { name: 'EC25EFAR06A03M4G' }).click();
    await page.getByRole('heading', { level: 1, name: 'EC25EFAR06A03M4G' }).waitFor();
    assert.equal((await factsOf(page, 'Connection')).Operator, 'Vodafone.de');
    assert.equal((await factsOf(page, 'Device')).IMEI, '350000000000017');
    assert.equal(await button(page, 'Disconnect').isVisible(), true);
    assert.equal(await button(page, 'Restart…').isVisible(), false);
  });

  for (const bus of ['9-9', '%']) {
    test(`a bus without a modem (${bus}) says so`, async (t) => {
      const page = await openSignedIn(t, { hash: `#/modem/${bus}` });
      await shows(page, `There is no modem on bus ${bus}.`);
    });
  }
});

describe('messages', () => {
  test('the inbox lists the newest first, with sender, time and text', async (t) => {
    const page = await openSignedIn(t);
    assert.equal(await page.locator('#unread').innerText(), '2 new');
    await page.getByRole('link', { name: /^Messages/ }).click();
    const items = page.locator('.messages li');
    await items.first().waitFor();
    const texts = await items.evaluateAll((all) =>
      all.map((one) => one.innerText.split('\n').filter(Boolean).slice(0, 3)),
    );
    assert.deepEqual(texts, [
      ['+491700000001 New', '21 Nov 2026, 09:30', 'Your data volume is 10 GB.'],
      ['+491700000017 New', '20 Nov 2026, 18:04', 'Storage 2: the door was opened at 18:03 and closed at 18:04.'],
      [
        '+391700000002',
        '19 Nov 2026, 07:15',
        'Gentile cliente, l\u2019offerta si \u00e8 rinnovata: 100 GB fino al 18 dicembre.',
      ],
    ]);
  });
});

describe('the words', () => {
  test('every model of the documentation has its name', async (t) => {
    const page = await open(t);
    const names = await page.evaluate(async () => (await import('./words.js')).MODELS);
    const text = await readFile(new URL('../../docs/models.md', import.meta.url), 'utf8');
    const rows = [...text.matchAll(/^\| (\w+) \| (\d+) \|/gm)].filter(([, name]) => name !== 'unknown');
    assert.ok(rows.length >= 12);
    assert.deepEqual(names, Object.fromEntries(rows.map(([, name, id]) => [id, name.toUpperCase()])));
  });

  const CASES = [
    ['figure', ['-109', 'dBm'], `${MINUS}109 dBm`],
    ['figure', ['--65', 'dBm'], `${MINUS}65 dBm`],
    ['figure', ['-', 'dB'], ''],
    ['figure', ['no idea', 'dB'], 'no idea'],
    ['figure', [undefined, 'dB'], ''],
    ['figure', ['-14.5', 'dB'], `${MINUS}14.5 dB`],
    ['volume', ['0'], '0 B'],
    ['volume', [999], '999 B'],
    ['volume', ['1234'], '1.2 kB'],
    ['volume', [5.4e10], '54.0 GB'],
    ['volume', [''], ''],
    ['volume', ['many'], ''],
    ['volume', [2e18], '2000000 TB'],
    ['when', ['26-01-02 03:04:05\n'], '2 Jan 2026, 03:04'],
    ['when', ['some day'], 'some day'],
    ['when', [undefined], ''],
    ['link', ['constructor'], ['constructor', 'off']],
    ['word', [-1], 'Unknown'],
    ['word', [0], 'None'],
    ['modelName', [{ modem_id: 255, name: ' FM150\r' }], 'FM150'],
    ['modelName', [{}], 'Modem'],
    // GSM; an NL678E, which tells steps without a unit; a model that tells the level alone; one that tells nothing.
    [
      'measurements',
      [{ type: 'GSM', rssi: '--65' }, {}],
      [{ key: 'rssi', name: 'RSSI', text: `${MINUS}65 dBm`, grade: 4 }],
    ],
    [
      'measurements',
      [{ rsrp: '50', rssi: '-71', ecno: '' }, { modem_id: 40 }],
      [
        { key: 'rssi', name: 'RSSI', text: `${MINUS}71 dBm`, grade: 3 },
        { key: 'rsrp', name: 'RSRP', text: '50', grade: 0 },
      ],
    ],
    [
      'charted',
      [{ signal_info: [{ rsrp: '50', rssi: '-71' }] }, { modem_id: 40 }],
      { name: 'RSSI', unit: 'dBm', range: [-100, -60], value: -71 },
    ],
    ['charted', [{ signal: 2 }, { modem_id: 5 }], { name: 'Level', unit: '', range: [0, 4], value: 2 }],
    ['charted', [{ SIM_status: -1 }, {}], null],
  ];
  const CELLS = [
    [
      {
        type: 'PSS',
        state: 'Attached',
        cellid: '0A1B2C3D (169552957)',
        band: 'B2',
        bandwidth: '20 MHz',
        'rx-chan': '800',
        'M-rsrp': '-81',
        rsrq: '-14.0',
        sinr: '23.8',
        tac: '7B21 (31521)',
        rat: 'LTE',
      },
      ['Carrier 1', 'B2', '800', '', `${MINUS}81`, `${MINUS}14`, '23.8', '20 MHz', 'Attached'],
    ],
    [
      {
        IsServiceCell: '1',
        rat: '4G',
        mcc: '460',
        mnc: '01',
        earfcn: '1650',
        physicalcellId: '21',
        band: '3',
        bandwidth: '100',
        rsrp: '56',
        rsrq: '24',
      },
      ['Serving', 'B3', '1650', '21', '56', '24', '', '100', ''],
    ],
    [
      { type: 'servingcell', rat: 'WCDMA', uarfcn: '10763', psc: '65', rscp: '-73', ecio: '-4', state: 'LIMSRV' },
      ['Serving', '', '10763', '65', `${MINUS}73`, `${MINUS}4`, '', '', 'Limited service'],
    ],
  ];
  test('the cells of all dialects have the same columns', async (t) => {
    const page = await open(t);
    const rows = await page.evaluate(async (cells) => {
      const { cellOf } = await import('./words.js');
      return cells
        .map(([cell]) => cellOf(cell))
        .map((cell) =>
          ['kind', 'band', 'channel', 'code', 'power', 'quality', 'noise', 'width', 'state'].map((key) => cell[key]),
        );
    }, CELLS);
    assert.deepEqual(
      rows,
      CELLS.map(([, row]) => row),
    );
  });

  test('values are written for people', async (t) => {
    const page = await open(t);
    const written = await page.evaluate(async (cases) => {
      const words = await import('./words.js');
      return cases.map(([name, values]) => words[name](...values.map((value) => value ?? undefined)));
    }, CASES);
    assert.deepEqual(
      written,
      CASES.map(([, , expected]) => expected),
    );
  });
});
