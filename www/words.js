// What the modems' values are called, and how they are written for people.

export const MODELS = {
	0: 'EC20', 1: 'EP06', 3: 'EC25', 4: 'UC20', 5: 'MC7430', 6: 'EC200T', 7: 'BG95', 8: 'EG91', 9: 'EC100Y',
	20: 'SIMCOM7600', 30: 'ME3630', 40: 'NL678E',
};
const TELLS_INDEXES = [40]; // of its measurements all but RSSI are the modem's own steps, without a unit

const LEVELS = ['None', 'Weak', 'Fair', 'Good', 'Very good'];
const LINKS = {
	on: ['Connected', 'good'],
	connecting: ['Connecting', 'fair'],
	pending: ['Connecting', 'fair'],
	off: ['Not connected', 'off'],
};
const SIMS = {
	0: ['Ready', ''],
	'-1': ['No SIM card', 'There is no SIM card in this modem, or it cannot be read.'],
	'-2': ['PIN needed', 'The SIM card asks for its PIN.'],
	'-3': ['Not registered', 'The SIM card is ready, but no network has accepted the modem yet.'],
	'-4': ['Blocked', 'The SIM card is blocked and asks for its PUK.'],
};

// Name, unit, and the least values for the words "Very good", "Good" and "Fair": those behind the signal level.
const LTE = {
	rsrp: ['RSRP', 'dBm', [-90, -105, -120]],
	rsrq: ['RSRQ', 'dB', [-9, -12, -13]],
	sinr: ['SINR', '', [20, 12, 0]], // scales differ
	rssi: ['RSSI', 'dBm', [-65, -75, -85]],
};
const OTHERS = {
	rscp: ['RSCP', 'dBm', [-60, -70, -85]],
	ecio: ['Ec/Io', 'dB', [0, -10, -20]],
	rssi: ['RSSI', 'dBm', [-70, -80, -95]],
	sinr: ['SINR', ''],
};
// What the chart follows: the first that the modem tells. RANGE is what it covers at least.
const CHARTED = [['rsrp', [-120, -80]], ['rscp', [-110, -70]], ['rssi', [-100, -60]]];

const clean = (value) => String(value ?? '').trim();
// A row of a table, by what a modem said: only the table's own.
const row = (table, key) => (Object.hasOwn(table, key) ? table[key] : undefined);

// A measurement as a number; NaN for what is none. Some modems put two minus signs before it.
export const measured = (value) =>
	(/^-{0,2}\d+(\.\d+)?$/.test(clean(value)) ? Number(clean(value).replace('--', '-')) : NaN);

// With a real minus sign; what is no number as it was sent.
export function figure(value, unit = '') {
	const number = measured(value);
	const text = Number.isNaN(number) ? clean(value) : String(number).replace('-', '−');
	return text && text !== '-' ? `${text}${unit && !Number.isNaN(number) ? ` ${unit}` : ''}` : '';
}

export const word = (level) => row(LEVELS, level) ?? 'Unknown';
export const modelName = (identity) => row(MODELS, identity.modem_id) ?? (clean(identity.name) || 'Modem');
export const place = (bus) => `Bus ${bus}`.replaceAll('-', '\u2011'); // in one piece
export const link = (up) => row(LINKS, up) ?? [clean(up) || 'Unknown', 'off'];
export const sim = (status) => row(SIMS, status) ?? ['Unknown', ''];
export const hasIndexes = (identity) => TELLS_INDEXES.includes(identity.modem_id);

// The measurements of one signal object: name, value with unit, grade 1 to 4 (0: not graded).
export function measurements(signal, identity) {
	const table = signal.type === 'LTE' ? LTE : OTHERS;
	const keys = new Set([...Object.keys(table), ...Object.keys(signal)]);
	return [...keys].filter((key) => key !== 'type' && figure(signal[key]) !== '').map((key) => {
		const known = Object.hasOwn(table, key) && !(hasIndexes(identity) && key !== 'rssi');
		const [name, unit, limits] = known ? table[key] : [key.toUpperCase(), ''];
		const value = measured(signal[key]);
		const grade = limits && !Number.isNaN(value) ? 4 - limits.filter((least) => value < least).length : 0;
		return { key, name, text: figure(signal[key], unit), grade };
	});
}

// What the chart shows of a status: the name of the quantity, its unit, the least range, and the value now.
export function charted(status, identity) {
	const [signal] = status.signal_info ?? [];
	for (const [key, range] of CHARTED) {
		const value = measured(signal?.[key]);
		if (!Number.isNaN(value) && !(hasIndexes(identity) && key !== 'rssi')) {
			return { name: OTHERS[key]?.[0] ?? LTE[key][0], unit: 'dBm', range, value };
		}
	}
	return typeof status.signal === 'number' && status.signal >= 0
		? { name: 'Level', unit: '', range: [0, 4], value: status.signal } : null;
}

export function volume(value) {
	let amount = Number(clean(value));
	if (clean(value) === '' || !(amount >= 0)) {
		return '';
	}
	const units = ['B', 'kB', 'MB', 'GB', 'TB'];
	let step = 0;
	while (amount >= 1000 && step < units.length - 1) {
		amount /= 1000;
		step++;
	}
	return `${step && amount < 100 ? amount.toFixed(1) : Math.round(amount)} ${units[step]}`;
}

export const clock = (moment) => moment.toLocaleTimeString('en-GB', { hour: '2-digit', minute: '2-digit' });

// The time of a message, "26-11-21 09:30:00" by the network's clock; as it is where it is of another form.
export function when(text) {
	const parts = /^(\d\d)-(\d\d)-(\d\d) (\d\d):(\d\d)/.exec(clean(text));
	if (!parts) {
		return clean(text);
	}
	const [year, month, day, hour, minute] = parts.slice(1).map(Number);
	return new Date(2000 + year, month - 1, day, hour, minute)
		.toLocaleString('en-GB',
			{ day: 'numeric', month: 'short', year: 'numeric', hour: '2-digit', minute: '2-digit' });
}

const CELL_STATES = { NOCONN: 'Idle', CONNECT: 'In use', LIMSRV: 'Limited service', SEARCH: 'Searching' };
const CELL_KINDS = { servingcell: 'Serving', PSS: 'Carrier 1', SSS: 'Carrier 2', neighbourcell: 'Neighbour' };
const pick = (cell, ...keys) => clean(keys.map((key) => cell[key]).find((value) => clean(value) !== ''));

// One cell of any dialect, by the columns of the table.
export function cellOf(cell) {
	const band = pick(cell, 'band').replace(/^LTE BAND /, '').replace(/^(\d+)$/, 'B$1');
	const type = cell.type ?? (cell.IsServiceCell === '1' ? 'servingcell' : 'neighbourcell');
	return {
		kind: row(CELL_KINDS, type) ?? clean(type),
		serving: type === 'servingcell' || type === 'PSS',
		technology: pick(cell, 'rat'),
		band,
		channel: pick(cell, 'earfcn', 'uarfcn', 'freq', 'rx-chan', 'chan', 'bcch'),
		code: pick(cell, 'pcid', 'cellid|pcid', 'physicalcellId', 'psc'),
		power: figure(pick(cell, 'rsrp', 'M-rsrp', 'rscp', 'rxlev', 'M-rssi-c0')),
		quality: figure(pick(cell, 'rsrq', 'ecio')),
		noise: figure(pick(cell, 'sinr')),
		id: pick(cell, 'cellid'),
		area: pick(cell, 'tac', 'lac'),
		width: pick(cell, 'dl_bandwidth', 'bandwidth').replace(/(\d)M$/, '$1 MHz'),
		network: cell.mcc ? `${clean(cell.mcc)}-${clean(cell.mnc)}` : '',
		state: row(CELL_STATES, pick(cell, 'state')) ?? pick(cell, 'state'),
	};
}

const bytes = (text) => new TextEncoder().encode(text).length;
const MESSAGE_BYTES = 283; // number, text and kind of number together, as the router's script takes them

// A message as the send method takes it. The router's script is given the text between single quotes, so each one in
// the text is written in the way of the shell. `left` is the room in bytes that is left; `valid` tells of the number.
export function outgoing(number, text) {
	const digits = number.replace(/[\s()/-]/g, '');
	const type = digits.startsWith('+') ? 'international' : 'national';
	const message = text.replaceAll('\0', '').replaceAll("'", "'\\''");
	return {
		valid: /^\+?\d{3,20}$/.test(digits),
		left: MESSAGE_BYTES - bytes(digits) - bytes(type) - bytes(message),
		request: { number: digits, message, type },
	};
}
