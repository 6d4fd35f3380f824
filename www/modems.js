// The views of the modems: all of them as cards, and one with everything about it.
import { chart, sparkline } from './chart.js';
import { each, el, facts, say, svg } from './dom.js';
import { change, state } from './store.js';
import { may } from './ubus.js';
import * as words from './words.js';

// --- Parts that both views have ---

// A state as a coloured dot and its word.
function chip() {
	const node = el('span', { class: 'chip' });
	return {
		node,
		update(modem) {
			const [text, kind] = state.busy.has(modem.bus) ? [state.busy.get(modem.bus), 'fair']
				: modem.gone ? ['Gone', 'bad'] : words.link(modem.status.up);
			say(node, text);
			node.className = `chip ${kind}`;
		},
	};
}

const mainFigure = (modem) =>
	words.measurements(modem.status.signal_info?.[0] ?? {}, modem.identity)
		.find(({ key }) => key === (modem.quantity?.name ?? '').toLowerCase());

// Why there is no signal to show, in a sentence.
function complaint(modem) {
	if (modem.gone) {
		return `It left its place at ${words.clock(modem.gone)}. It will be shown here as soon as it is back.`;
	}
	return words.sim(modem.status.SIM_status)[1] || 'The modem does not tell its signal at the moment.';
}

// The signal as bars and a word, or in a sentence `why` there is none. `update` shows one of them, the first with the
// `part` of the view around it, and gives whether there is one.
function strength() {
	const heights = [7, 12, 17, 22];
	const bars = svg('svg', { class: 'bars', viewBox: '0 0 30 24', 'aria-hidden': 'true' },
		...heights.map((height, index) => svg('rect', { x: index * 8, y: 24 - height, width: 5.5, height, rx: 1.5 })));
	const word = el('strong', { class: 'word' });
	const why = el('p', { class: 'why' });
	return {
		bars,
		word,
		why,
		update(modem, part) {
			const { signal, signal_info: measured } = modem.status;
			const shown = !modem.gone && (signal != null || measured?.length > 0);
			const level = Number.isInteger(signal) ? Math.min(Math.max(signal, 0), 4) : 0;
			part.hidden = !shown;
			why.hidden = shown;
			say(why, shown ? '' : complaint(modem));
			bars.setAttribute('class', `bars level-${level}`);
			[...bars.children].forEach((bar, index) => bar.toggleAttribute('data-on', index < level));
			say(word, words.word(signal));
			return shown;
		},
	};
}

const subtitle = (modem) =>
	[modem.status.carrier?.trim(), modem.status.mode, words.place(modem.bus)].filter(Boolean).join(' · ');

// What is only known, and only true, while the link is up.
const linkRows = (status) => (status.up !== 'on' ? [] : [
	['Internet', 'online' in status ? (status.online ? 'Reached' : 'Not confirmed') : ''], ['Address', status.ip_addr],
	['Received', words.volume(status.download)], ['Sent', words.volume(status.upload)],
]);

// --- All modems ---

function card() {
	const link = el('a', {});
	const subtle = el('p', { class: 'subtle' });
	const badge = chip();
	const signal = strength();
	const spark = sparkline();
	const number = el('span', { class: 'subtle figure' });
	const line = el('div', { class: 'signal' }, signal.bars, el('div', {}, signal.word, number), spark.node);
	const list = el('dl', { class: 'facts inline' });
	const node = el('li', { class: 'card modem' },
		el('div', { class: 'head' }, el('div', {}, el('h2', {}, link), subtle), badge.node), line, signal.why, list);
	node.update = (modem) => {
		link.href = `#/modem/${modem.bus}`;
		say(link, words.modelName(modem.identity));
		say(subtle, subtitle(modem));
		badge.update(modem);
		node.classList.toggle('gone', Boolean(modem.gone));
		if (signal.update(modem, line)) {
			say(number, mainFigure(modem)?.text ?? '');
			spark.node.toggleAttribute('hidden', !modem.quantity);
			if (modem.quantity) {
				spark.update(modem.history, modem.quantity);
			}
		}
		const { status } = modem;
		facts(list, modem.gone ? [] : [
			['SIM card', words.sim(status.SIM_status)[0]], ...linkRows(status).slice(0, 2),
		]);
	};
	return node;
}

export function overview() {
	const empty = el('p', { class: 'card why', hidden: true },
		'No modem is there. One that is plugged in and configured appears here by itself.');
	const hint = el('p', { class: 'card why', hidden: true });
	const list = el('ul', { class: 'cards', 'aria-label': 'Modems' });
	return {
		title: 'Modems',
		needs: {},
		nodes: [empty, hint, list],
		update() {
			empty.hidden = !state.refreshed || state.modems.size > 0;
			hint.hidden = !state.hint;
			say(hint, `The modem's band would disturb Wi-Fi channel ${state.hint} less than the present one.`);
			each(list, [...state.modems.values()], ({ bus }) => bus, card, (node, modem) => node.update(modem));
		},
	};
}

// --- One modem ---

function measures() {
	const node = el('dl', { class: 'measures' });
	const make = () =>
		el('div', {}, el('dt'), el('dd', {}, el('span', { class: 'value' }), el('span')));
	return {
		node,
		update(modem) {
			const signals = modem.status.signal_info ?? [];
			const rows = signals.flatMap((signal) => words.measurements(signal, modem.identity));
			each(node, rows, ({ key }) => key, make, (row, measure) => {
				const [value, grade] = row.lastChild.children;
				say(row.firstChild, measure.name);
				say(value, measure.text);
				say(grade, measure.grade ? words.word(measure.grade) : '');
				grade.className = `level-${measure.grade}`;
			});
		},
	};
}

const COLUMNS = [
	['kind', 'Cell', ''], ['band', 'Band', ''], ['channel', 'Channel', ''], ['code', 'Code', ''],
	['power', 'Power', ''], ['quality', 'Quality', 'wide'], ['noise', 'SINR', ''],
];
const UNITS = { power: 'dBm', quality: 'dB', noise: 'dB' };

function cellTable() {
	const list = el('dl', { class: 'facts grid' });
	const head = COLUMNS.map(([key, name, kind]) => {
		const cell = el('th', { scope: 'col', class: kind }, name);
		if (UNITS[key]) {
			cell.append(el('span', { class: 'unit' }, ` ${UNITS[key]}`));
		}
		return cell;
	});
	const body = el('tbody');
	const table = el('table', {}, el('caption', { class: 'hidden' }, 'Serving and neighbour cells'),
		el('thead', {}, el('tr', {}, ...head)), body);
	const place = el('div', { class: 'scroll', tabindex: '0', role: 'region', 'aria-label': 'Table of cells' }, table);
	const why = el('p', { class: 'subtle' });
	const make = () =>
		el('tr', {}, el('th', { scope: 'row' }), ...COLUMNS.slice(1).map(([, , kind]) => el('td', { class: kind })));
	return {
		nodes: [list, place, why],
		update(modem) {
			const cells = (modem.cells || []).map(words.cellOf);
			const serving = cells.find(({ serving: is, id }) => is && id) ?? cells.find(({ serving: is }) => is);
			facts(list, serving ? [
				['Technology', serving.technology], ['Network', serving.network], ['Cell ID', serving.id],
				['Area', serving.area], ['Bandwidth', serving.width], ['State', serving.state],
			] : []);
			place.hidden = cells.length === 0;
			why.hidden = cells.length > 0;
			say(why, modem.gone ? '' : modem.cells === false ? 'This modem cannot tell its cells.'
				: modem.cells ? 'The modem names no cell at the moment.' : 'The modem is being asked…');
			for (const [index, [key]] of COLUMNS.entries()) {
				if (UNITS[key]) {
					head[index].lastChild.hidden = words.hasIndexes(modem.identity);
				}
			}
			each(body, cells.map((cell, index) => ({ ...cell, index })), ({ index }) => index, make, (row, cell) => {
				row.className = cell.serving ? 'serving' : '';
				COLUMNS.forEach(([key], index) => {
					say(row.children[index], cell[key] || '–');
					row.children[index].classList.toggle('none', !cell[key]);
				});
			});
		},
	};
}

// The buttons of a modem. `tell` shows a result or a problem; `confirm` asks first.
function actions(bus, { tell, fail, confirm }) {
	const run = (doing, done, method, args = () => ({})) => async () => {
		try {
			await change(bus, doing, method, args(state.modems.get(bus)));
			tell(done);
		} catch (problem) {
			fail(problem,
				problem.kind === 'timeout' ? `${doing} takes long. Its state here will tell how it ends.` : '');
		}
	};
	const connect = el('button', { type: 'button', class: 'primary',
		click: run('Connecting', 'The connection is being made.', 'enable', () => ({ disable: false })) }, 'Connect');
	const find = el('button', { type: 'button',
		click: run('Connecting', 'The settings that fit the SIM card are being tried.', 'auto',
			({ identity }) => ({ modem_id: identity.modem_id })) }, 'Connect with automatic settings');
	const disconnect = el('button', { type: 'button',
		click: run('Disconnecting', 'The connection has been taken down.', 'enable', () => ({ disable: true })),
	}, 'Disconnect');
	const restart = run('Restarting', 'The modem has been restarted.', 'reset',
		({ identity }) => ({ modem_id: identity.modem_id, disable: false }));
	const reset = el('button', { type: 'button', class: 'danger', click: async () => {
		const name = words.modelName(state.modems.get(bus).identity);
		if (await confirm(`Restart ${name}?`,
			'Its connection ends, and it is away for about half a minute before it connects again.', 'Restart')) {
			await restart();
		}
	} }, 'Restart…');
	const note = el('p', { class: 'subtle' }, 'You may look, but not change anything.');
	return {
		nodes: [el('div', { class: 'buttons' }, connect, find, disconnect, reset), note],
		update(modem) {
			const idle = !modem.gone && !state.busy.has(bus);
			const off = modem.status.up === 'off';
			const known = modem.identity.modem_id != null;
			connect.hidden = !may('enable') || !off;
			find.hidden = !may('auto') || !off || !known;
			disconnect.hidden = !may('enable') || off;
			reset.hidden = !may('reset') || !known;
			note.hidden = may('enable') || may('reset');
			for (const button of [connect, find, disconnect, reset]) {
				button.setAttribute('aria-disabled', String(!idle));
			}
		},
	};
}

export function oneModem(bus, tools) {
	const badge = chip();
	const subtle = el('p', { class: 'subtle' });
	const missing = el('p', { class: 'card why', hidden: true });
	const signal = strength();
	const measured = measures();
	const curve = chart();
	const chartTitle = el('h3', {});
	const shownSignal = el('div', {},
		el('div', { class: 'signal' }, signal.bars, signal.word), measured.node, chartTitle, curve.node);
	const linkFacts = el('dl', { class: 'facts' });
	const modemFacts = el('dl', { class: 'facts' });
	const cells = cellTable();
	const buttons = actions(bus, tools);
	const panel = (name, id, ...children) =>
		el('section', { class: `card ${id}`, 'aria-labelledby': id }, el('h2', { id }, name), ...children);
	const panels = el('div', { class: 'panels' },
		panel('Signal', 'signal-panel', shownSignal, signal.why),
		panel('Connection', 'link-panel', linkFacts, ...buttons.nodes),
		panel('Cells', 'cells-panel', ...cells.nodes),
		panel('Device', 'device-panel', modemFacts));
	const view = {
		title: 'Modem',
		needs: { cells: bus },
		back: true,
		extra: [badge.node],
		nodes: [subtle, missing, panels],
		update() {
			const modem = state.modems.get(bus);
			panels.hidden = !modem;
			badge.node.hidden = !modem;
			missing.hidden = Boolean(modem) || !state.refreshed;
			say(missing, `There is no modem on bus ${bus}.`);
			if (!modem) {
				return;
			}
			const { status, identity } = modem;
			view.title = words.modelName(identity);
			say(subtle, subtitle(modem));
			badge.update(modem);
			if (signal.update(modem, shownSignal)) {
				measured.update(modem);
				chartTitle.hidden = curve.node.hidden = !modem.quantity;
				if (modem.quantity) {
					const { name, unit } = modem.quantity;
					say(chartTitle, `${name}${unit && ` in ${unit}`}, last ten minutes`);
					curve.update(modem.history, modem.quantity);
				}
			}
			facts(linkFacts, modem.gone ? [] : [
				['State', words.link(status.up)[0]], ['Operator', status.carrier?.trim()], ['Generation', status.mode],
				['SIM card', words.sim(status.SIM_status)[0]],
				['Gateway', status.up === 'on' ? status.gateway : ''], ...linkRows(status),
			]);
			facts(modemFacts, [
				['Model', words.modelName(identity)], ['Firmware', identity.name?.trim()], ['IMEI', identity.IMEI],
				['Place', words.place(bus)],
				['AT port', identity.control_port], ['Data port', identity.data_port], ['QMI port', identity.qmi_port],
				['Hardware', identity.hw_version], ['SIM slot', identity.sim_num],
			]);
			cells.update(modem);
			buttons.update(modem);
		},
	};
	return view;
}
