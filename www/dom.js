// Small helpers to build and update the document. Text always becomes a text node, so nothing that comes from a modem
// or a message is ever read as markup.

const SVG = 'http://www.w3.org/2000/svg';

function fill(node, properties, children) {
	for (const [name, value] of Object.entries(properties)) {
		if (typeof value === 'function') {
			node.addEventListener(name, value);
		} else if (typeof value === 'boolean') {
			node.toggleAttribute(name, value);
		} else {
			node.setAttribute(name, value);
		}
	}
	node.append(...children.filter((child) => child != null));
	return node;
}

// An element: of its properties, functions listen to that event, and booleans are attributes that are there or not.
export const el = (tag, properties = {}, ...children) => fill(document.createElement(tag), properties, children);
export const svg = (tag, properties = {}, ...children) =>
	fill(document.createElementNS(SVG, tag), properties, children);

// Sets a text only where it changes, so that screen readers hear of changes alone.
export function say(node, text) {
	if (node.textContent !== text) {
		node.textContent = text;
	}
}

// Makes the children of `parent` follow `items`: a child is made once and then follows the item with its key, so that
// focus and scroll positions stay. Several items may have the same key.
export function each(parent, items, key, make, update) {
	const old = [...parent.children];
	const shown = items.map((item) => {
		const name = String(key(item));
		const found = old.findIndex((child) => child.dataset.key === name);
		const child = found < 0 ? make(item) : old.splice(found, 1)[0];
		child.dataset.key = name;
		return child;
	});
	// First, as one that is moved loses the focus.
	old.forEach((child) => child.remove());
	shown.forEach((child, index) => {
		if (parent.children[index] !== child) {
			parent.insertBefore(child, parent.children[index] ?? null);
		}
		update(child, items[index]);
	});
}

// Terms and descriptions from pairs; a pair without a description is left out.
export function facts(list, pairs) {
	const shown = pairs.filter(([, value]) => value !== '' && value != null);
	list.hidden = !shown.length;
	each(list, shown, ([term]) => term, () => el('div', {}, el('dt'), el('dd')), (row, [term, value]) => {
		say(row.firstChild, term);
		say(row.lastChild, value);
	});
}
