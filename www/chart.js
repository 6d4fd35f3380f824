// The signal over time as a line: large with its axes, or small without.
import { el, svg } from './dom.js';
import { figure } from './words.js';

const WINDOW_MS = 10 * 60 * 1000;
const GAP_MS = 45 * 1000; // longer than this nothing was measured: the line is broken
const EDGE = { left: 44, right: 12, top: 12, bottom: 26 };
const HEIGHT = 190;
const TIMES = [[10, '10 min ago', 'start'], [5, '5 min ago', 'middle'], [0, 'now', 'end']];

// The points of the window, in runs without a gap.
function runs(history, now) {
	const result = [];
	let before = -Infinity;
	for (const [moment, value] of history) {
		if (moment < now - WINDOW_MS) {
			continue;
		}
		if (moment - before > GAP_MS) {
			result.push([]);
		}
		result.at(-1).push([moment, value]);
		before = moment;
	}
	return result;
}

function bounds(values, [low, high]) {
	const step = high - low > 10 ? 10 : 1;
	return [Math.min(low, Math.floor(Math.min(...values) / step) * step),
		Math.max(high, Math.ceil(Math.max(...values) / step) * step)];
}

const path = (points) => points.map(([x, y], index) => `${index ? 'L' : 'M'}${x.toFixed(1)} ${y.toFixed(1)}`).join('');

function draw(frame, width, height, edge, history, range, now) {
	const drawn = runs(history, now);
	const values = drawn.flat().map(([, value]) => value);
	const [low, high] = bounds(values, range);
	const x = (moment) => edge.left + (1 - (now - moment) / WINDOW_MS) * (width - edge.left - edge.right);
	const y = (value) => edge.top + ((high - value) / (high - low)) * (height - edge.top - edge.bottom);
	const base = height - edge.bottom;
	const parts = [];
	for (const run of drawn) {
		const points = run.map(([moment, value]) => [x(moment), y(value)]);
		if (points.length > 1) {
			const area = `${path(points)}L${points.at(-1)[0].toFixed(1)} ${base}L${points[0][0].toFixed(1)} ${base}Z`;
			parts.push(svg('path', { class: 'area', d: area }), svg('path', { class: 'line', d: path(points) }));
		}
	}
	const end = drawn.at(-1)?.at(-1);
	if (end) {
		parts.push(svg('circle', { class: 'end', cx: x(end[0]).toFixed(1), cy: y(end[1]).toFixed(1), r: 3.5 }));
	}
	frame.setAttribute('viewBox', `0 0 ${width} ${height}`);
	frame.replaceChildren(...parts);
	return { low, high, x, y, values };
}

const label = (x, y, anchor, text) => svg('text', { class: 'tick', x, y, 'text-anchor': anchor }, text);

// A chart that fills the width of its place; `update` takes the history (pairs of time and value, in order) and what
// is charted (words.js).
export function chart() {
	const frame = svg('svg', { class: 'chart', role: 'img', height: HEIGHT });
	const node = el('div', { class: 'chart-place' }, frame);
	let shown = null;

	function redraw() {
		const width = node.clientWidth;
		if (!shown || !width) {
			return;
		}
		const { history, quantity: { name, unit, range } } = shown;
		const now = Date.now();
		const { low, high, x, y, values } = draw(frame, width, HEIGHT, EDGE, history, range, now);
		const axes = [];
		// At most eight, as a modem may say anything.
		const steps = high - low > 10 ? Math.min(Math.ceil((high - low) / 20), 8) : 4;
		for (let step = 0; step <= steps; step++) {
			const value = low + (step * (high - low)) / steps;
			const line = Math.round(y(value)) + 0.5;
			axes.push(svg('line', { class: 'grid', x1: EDGE.left, x2: width - EDGE.right, y1: line, y2: line }),
				label(EDGE.left - 8, line + 4, 'end', figure(Math.round(value))));
		}
		for (const [minutes, text, anchor] of TIMES) {
			axes.push(label(x(now - minutes * 60000), HEIGHT - 6, anchor, text));
		}
		frame.prepend(...axes);
		const spread = values.length
			? `between ${figure(Math.min(...values))} and ${figure(Math.max(...values), unit)}, `
				+ `now ${figure(values.at(-1), unit)}`
			: 'nothing measured yet';
		frame.setAttribute('aria-label', `${name} in the last ten minutes: ${spread}`);
	}

	new ResizeObserver(redraw).observe(node);
	return {
		node,
		update(history, quantity) {
			shown = { history, quantity };
			redraw();
		},
	};
}

// The same as a small ornament beside figures that say it in words.
export function sparkline() {
	const frame = svg('svg', { class: 'chart spark', 'aria-hidden': 'true', preserveAspectRatio: 'none' });
	return {
		node: frame,
		update(history, quantity) {
			draw(frame, 240, 56, { left: 0, right: 4, top: 6, bottom: 2 }, history, quantity.range, Date.now());
		},
	};
}
