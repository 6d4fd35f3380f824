// What the browser tests share: the simulated router with its web server (serve.py), the browser, and pages in it that
// are watched while a test uses them.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { after, before } from 'node:test';
import { createInterface } from 'node:readline';
import { fileURLToPath } from 'node:url';
import { chromium } from 'playwright-core';

const BROWSER = process.env.VELA_BROWSER ?? '/usr/bin/chromium';
const SERVE = fileURLToPath(new URL('serve.py', import.meta.url));
const WAIT_MS = 15000;
export const ROUND_MS = 10500; // a little more than the page rests between its questions

export const WIDE = { width: 1200, height: 900 };
export const PHONE = { width: 390, height: 844 };

let process_;
let lines;
let browser;
export let address;
export let users;

export async function startStage() {
  process_ = spawn('/usr/bin/python3', [SERVE], { stdio: ['pipe', 'pipe', 'inherit'] });
  lines = createInterface(process_.stdout)[Symbol.asyncIterator]();
  const { value } = await lines.next();
  assert.ok(value, 'the simulated router did not start');
  ({ address, users } = JSON.parse(value));
  // The kernel's sandbox is not for root, who alone can run the simulated router.
  browser = await chromium.launch({ executablePath: BROWSER, args: ['--no-sandbox', '--disable-lcd-text'] });
}

export async function endStage() {
  await browser?.close();
  process_.stdin.end();
  await once(process_, 'exit');
}

// To be called once in a file: the stage is there during its tests.
export function useStage() {
  before(startStage);
  after(endStage);
}

// A command for serve.py; gives its result.
export async function ask(what, options = {}) {
  process_.stdin.write(`${JSON.stringify({ do: what, ...options })}\n`);
  const { value } = await lines.next();
  const answer = JSON.parse(value);
  assert.equal(answer.error, undefined);
  return answer.result;
}

// Opens the page for one test, on a router as it was at the beginning. At the end of the test nothing may have been
// complained of in the console, nobody else may have been asked, and never two things at once. `expected` are the
// complaints that the test itself causes.
export async function open(t, { size = WIDE, scheme = 'light', hash = '', expected = [] } = {}) {
  await ask('reset');
  const context = await browser.newContext({ viewport: size, colorScheme: scheme });
  const page = await context.newPage();
  page.setDefaultTimeout(WAIT_MS);
  const complaints = [];
  const strangers = [];
  let underWay = 0;
  let together = 0;
  page.on('console', (message) => ['error', 'warning'].includes(message.type()) && complaints.push(message.text()));
  page.on('pageerror', (error) => complaints.push(String(error)));
  page.on('dialog', (dialog) => {
    complaints.push(`dialog: ${dialog.message()}`);
    dialog.dismiss();
  });
  page.on('request', (request) => {
    if (!request.url().startsWith(new URL(address).origin)) {
      strangers.push(request.url());
    }
    if (request.postDataJSON()?.params?.[1] === 'vela_modem') {
      together = Math.max(together, ++underWay);
    }
  });
  const over = (request) => request.postDataJSON()?.params?.[1] === 'vela_modem' && underWay--;
  page.on('requestfinished', over);
  page.on('requestfailed', over);
  t.after(async () => {
    await context.close();
    assert.deepEqual(
      complaints.filter((text) => !expected.some((pattern) => pattern.test(text))),
      [],
    );
    assert.deepEqual(strangers, []);
    assert.ok(together <= 1, `${together} questions at once`);
  });
  await page.clock.install();
  await page.goto(address + hash);
  return page;
}

export async function signIn(page, user = 'root') {
  await page.getByLabel('User name').fill(user);
  await page.getByLabel('Password').fill(users[user]);
  await page.getByRole('button', { name: 'Sign in' }).click();
  await page.getByRole('heading', { level: 1, name: 'Sign in' }).waitFor({ state: 'detached' });
}

// Opens the page and signs in; the first round of questions is over when this is.
export async function openSignedIn(t, { user = 'root', ...options } = {}) {
  const page = await open(t, options);
  await signIn(page, user);
  await page.getByText(/^Updated/).waitFor({ state: 'attached' });
  return page;
}

export const shows = (page, text) => page.getByText(text).first().waitFor();
export const showsNot = (page, text) => page.getByText(text).first().waitFor({ state: 'hidden' });
export const button = (page, name) => page.getByRole('button', { name });

// Waits until an expression comes true, in the browser or on the router.
export async function eventually(condition, what) {
  const end = Date.now() + WAIT_MS;
  while (!(await condition())) {
    assert.ok(Date.now() < end, `waited for ${what}`);
    await new Promise((resolve) => setTimeout(resolve, 20));
  }
}

// Lets the page's rest pass, and waits for the end of the round of questions that follows.
export async function nextRound(page) {
  const before_ = await page.locator('#fresh').textContent();
  await page.clock.fastForward(ROUND_MS);
  await eventually(async () => (await page.locator('#fresh').textContent()) !== before_, 'the next round');
}

// The pairs of a list of facts in the section with this heading.
export const factsOf = (page, section) =>
  page
    .getByRole('region', { name: section, exact: true })
    .locator('.facts > div')
    .evaluateAll((rows) =>
      Object.fromEntries(rows.map((row) => [row.querySelector('dt').textContent, row.querySelector('dd').textContent])),
    );
