// The messages: those that were received, and writing one.
import { each, el, say } from './dom.js';
import { changeMessages, state } from './store.js';
import { may } from './ubus.js';
import { outgoing, when } from './words.js';

const sender = (message) => {
	const from = (message.from ?? '').trim();
	return message.type === 'international' && /^\d+$/.test(from) ? `+${from}` : from || 'Unknown sender';
};
const newestFirst = (one, other) => (other.time ?? '').localeCompare(one.time ?? '');

function inbox({ tell, fail, confirm }) {
	const heading = el('h2', { id: 'inbox', tabindex: '-1' }, 'Inbox');
	const list = el('ul', { class: 'messages', 'aria-labelledby': 'inbox' });
	const why = el('p', { class: 'subtle' });

	function item(message) {
		const { name } = message;
		const from = el('strong', { class: 'from', dir: 'auto' });
		const fresh = el('span', { class: 'new' }, 'New');
		const time = el('span', { class: 'subtle' });
		const body = el('p', { class: 'body', dir: 'auto' });
		const run = async (button, method, done, after) => {
			button.setAttribute('aria-disabled', 'true');
			try {
				await changeMessages(method, { msg_id: name });
				after();
				tell(done);
			} catch (problem) {
				fail(problem);
			}
			button.setAttribute('aria-disabled', 'false');
		};
		const read = el('button', { type: 'button', class: 'quiet', click: () =>
			run(read, 'sms_status', 'The message is marked as read.', () => remove.focus()) }, 'Mark as read');
		const remove = el('button', { type: 'button', class: 'quiet danger', click: async () => {
			const text = `The message from ${from.textContent} cannot be brought back.`;
			if (await confirm('Delete this message?', text, 'Delete')) {
				await run(remove, 'sms_delete', 'The message has been deleted.', () => heading.focus());
			}
		} }, 'Delete');
		const node = el('li', {}, el('div', { class: 'head' }, el('div', {}, from, ' ', fresh), time), body,
			el('div', { class: 'buttons' }, read, remove));
		node.update = (now) => {
			const unread = now.status === 'unread';
			say(from, sender(now));
			say(time, when(now.time));
			say(body, (now.body ?? '').replace(/\n$/, ''));
			fresh.hidden = !unread;
			node.classList.toggle('unread', unread);
			read.hidden = !unread || !may('sms_status');
			remove.hidden = !may('sms_delete');
			for (const button of [read, remove]) {
				button.setAttribute('aria-label',
					`${button.textContent}: message from ${sender(now)}, ${when(now.time)}`);
			}
		};
		return node;
	}

	return {
		node: el('section', { class: 'card', 'aria-labelledby': 'inbox' }, heading, why, list),
		update() {
			const messages = [...(state.messages ?? [])].sort(newestFirst);
			why.hidden = messages.length > 0;
			say(why, !may('sms_list') ? 'This user may not read messages.'
				: state.messages ? 'No message has been received.' : 'The router is being asked…');
			each(list, messages, ({ name }) => name, item, (node, message) => node.update(message));
		},
	};
}

function writing({ tell, fail }) {
	const number = el('input',
		{ id: 'number', type: 'tel', autocomplete: 'tel', required: true, 'aria-describedby': 'number-hint' });
	const text = el('textarea', { id: 'text', rows: '5', required: true, 'aria-describedby': 'room' });
	const room = el('p', { id: 'room', class: 'subtle' });
	const wrong = el('p', { class: 'wrong', role: 'alert' });
	const send = el('button', { class: 'primary' }, 'Send');
	const count = () => {
		const { left } = outgoing(number.value, text.value);
		say(room, left >= 0 ? `Characters left: ${left}` : `Characters too many: ${-left}`);
		room.classList.toggle('wrong', left < 0);
	};
	const submit = async (event) => {
		event.preventDefault();
		const typed = text.value;
		const { valid, left, request } = outgoing(number.value, typed);
		say(wrong, !valid ? 'The number may have digits only, and a + before them.'
			: !request.message ? 'There is no text to send.'
			: left < 0 ? 'The text is too long for one message.' : '');
		if (wrong.textContent) {
			(valid ? text : number).focus();
			return;
		}
		send.setAttribute('aria-disabled', 'true');
		try {
			await changeMessages('sms_send', request);
			tell(`The message to ${request.number} has been handed over for sending.`);
			if (text.value === typed) { // and not the next one
				text.value = '';
				count();
			}
		} catch (problem) {
			fail(problem);
		}
		send.setAttribute('aria-disabled', 'false');
	};
	const form = el('form', { novalidate: true, submit }, el('label', { for: 'number' }, 'Number'), number,
		el('p', { id: 'number-hint', class: 'subtle' }, 'With its country code: +49 170 …'),
		el('label', { for: 'text' }, 'Text'), text, room, wrong, el('div', { class: 'buttons' }, send));
	for (const field of [number, text]) {
		field.addEventListener('input', count);
	}
	count();
	return el('section', { class: 'card', 'aria-labelledby': 'write' }, el('h2', { id: 'write' }, 'New message'), form);
}

export function messages(tools) {
	const received = inbox(tools);
	return {
		title: 'Messages',
		needs: { messages: true },
		nodes: [el('div', { class: 'panels letters' }, received.node, may('sms_send') ? writing(tools) : null)],
		update: received.update,
	};
}
