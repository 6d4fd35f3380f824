// What the page knows of the router, and how it asks for it: one round of questions, ten seconds of rest. While nobody
// sees the page it asks nothing.
import { call, isSignedIn, may } from './ubus.js';
import { charted, modelName } from './words.js';

const REST_MS = 10000;
const IDENTITY_MS = 60000; // the full report asks a modem more than its state takes
const HISTORY_LENGTH = 120;
const HISTORY_KEY = 'vela_modem.history';
const NO_MODEM = -250;
const NOT_SUPPORTED = -17;

// A modem: `bus`, `identity` and `status` (the report's keys), `gone` (when it went, or null), `cells` (an array, or
// null), `quantity` and `history` of the chart. `busy` says, by bus, what is being done to a modem; `failure` why the
// last round came to nothing.
export const state = { modems: new Map(), messages: null, hint: 0, busy: new Map(), failure: '', refreshed: 0 };

// What the view on the screen needs: `cells` of this bus, `messages`.
const wanted = { cells: null, messages: false };
let listener = { changed() {}, told() {} };
let timer = 0;
let running = null;
let identified = 0;
let histories = {};

try {
	histories = JSON.parse(sessionStorage.getItem(HISTORY_KEY)) ?? {};
} catch {
	// The chart begins anew.
}

export function listen(to) {
	listener = to;
}

export function want(needs) {
	wanted.cells = needs.cells ?? null;
	wanted.messages = needs.messages ?? false;
}

export function forget() {
	state.modems.clear();
	Object.assign(state, { messages: null, hint: 0, failure: '', refreshed: 0 });
	state.busy.clear();
	identified = 0;
	clearTimeout(timer);
}

// The id of any modem, where a method wants one and it does not matter which.
const anyModem = () =>
	[...state.modems.values()].map(({ identity }) => identity.modem_id).find((id) => id != null) ?? 0;

async function modemsOf(method) {
	try {
		return await call(method);
	} catch (problem) {
		if (problem.code === NO_MODEM) {
			return { modems: [] };
		}
		throw problem;
	}
}

// The full report; on boards that have none, what the two shorter ones say together.
async function identify() {
	try {
		return await modemsOf('info');
	} catch (problem) {
		if (problem.code !== NOT_SUPPORTED) {
			throw problem;
		}
		const [names, states] = [await modemsOf('brief_info'), await modemsOf('app_brief_info')];
		return { modems: states.modems.map((one) => ({ ...names.modems.find(({ bus }) => bus === one.bus), ...one })) };
	}
}

function remember(modem) {
	modem.quantity = charted(modem.status, modem.identity);
	if (!modem.quantity) {
		return;
	}
	const kept = histories[modem.bus];
	const history = kept?.name === modem.quantity.name ? kept.points : [];
	history.push([Date.now(), modem.quantity.value]);
	modem.history = history.slice(-HISTORY_LENGTH);
	histories[modem.bus] = { name: modem.quantity.name, points: modem.history };
}

function took(reports, complete) {
	const present = new Set(reports.map(({ bus }) => bus));
	for (const report of reports) {
		let modem = state.modems.get(report.bus);
		if (!modem) {
			modem = { bus: report.bus, identity: report, gone: null, cells: null, history: [] };
			state.modems.set(report.bus, modem);
		}
		if (modem.gone) {
			listener.told(`${modelName(modem.identity)} on bus ${modem.bus} is back.`);
		}
		modem.gone = null;
		modem.status = report;
		if (complete) {
			modem.identity = report;
		}
		remember(modem);
	}
	for (const modem of state.modems.values()) {
		if (!present.has(modem.bus) && !modem.gone) {
			modem.gone = new Date();
			modem.cells = null;
			listener.told(`${modelName(modem.identity)} on bus ${modem.bus} has gone.`);
		}
	}
	sessionStorage.setItem(HISTORY_KEY, JSON.stringify(histories));
}

async function askModems() {
	if (Date.now() - identified < IDENTITY_MS) {
		const { modems } = await modemsOf('app_brief_info');
		const known = modems.every(({ bus }) => state.modems.has(bus) && !state.modems.get(bus).gone);
		if (known) {
			took(modems, false);
			return;
		}
	}
	const report = await identify();
	state.hint = report.hint_modify_wifi_channel ?? 0;
	identified = Date.now();
	took(report.modems ?? [], true);
}

async function askCells() {
	const modem = state.modems.get(wanted.cells);
	if (!modem || modem.gone || modem.identity.modem_id == null || modem.cells === false) {
		return;
	}
	try {
		modem.cells = (await call('cells_get', { bus: modem.bus, modem_id: modem.identity.modem_id })).cells ?? [];
	} catch (problem) {
		if (problem.kind !== 'refused') {
			throw problem;
		}
		modem.cells = problem.code === NOT_SUPPORTED ? false : [];
	}
}

async function askMessages() {
	state.messages = (await call('sms_list', { modem_id: anyModem() })).messages ?? [];
}

async function round() {
	try {
		await askModems();
		listener.changed();
		if (wanted.cells && may('cells_get')) {
			await askCells();
		}
		if (wanted.messages && may('sms_list')) {
			await askMessages();
		}
		state.failure = '';
		state.refreshed = Date.now();
	} catch (problem) {
		state.failure = problem.kind === 'session' ? '' : problem.message;
	}
	listener.changed();
}

// Asks now, and from then on again and again. What is under way may have asked before the caller did something: then
// it asks once more.
export async function refresh({ fully = false } = {}) {
	await running;
	clearTimeout(timer);
	if (fully) {
		identified = 0;
	}
	if (!running && isSignedIn() && !document.hidden) {
		running = round().finally(() => {
			running = null;
			timer = setTimeout(refresh, REST_MS);
		});
	}
	return running;
}

document.addEventListener('visibilitychange', () => (document.hidden ? clearTimeout(timer) : refresh()));

// Does something to a modem, and says so until what came of it is seen. Throws the Problem that came of it.
export async function change(bus, doing, method, args) {
	state.busy.set(bus, doing);
	listener.changed();
	try {
		return await call(method, { bus, ...args });
	} finally {
		await refresh({ fully: true });
		state.busy.delete(bus);
		listener.changed();
	}
}

// The same for the messages.
export async function changeMessages(method, args) {
	const reply = await call(method, { modem_id: anyModem(), ...args });
	await refresh();
	return reply;
}
