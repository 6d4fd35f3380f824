// The status page: signs in, chooses the view by the address, and keeps what is on the screen up to date.
import { el, say } from './dom.js';
import { messages } from './messages.js';
import { oneModem, overview } from './modems.js';
import { forget, listen, refresh, state, want } from './store.js';
import { isSignedIn, login, logout, user, whenEnded } from './ubus.js';

const NOTICE_MS = 8000;
const $ = (id) => document.getElementById(id);
const main = $('main');
let view = null;
let heading = null;
let failure = null;
let noticeTimer = 0;

// --- Telling ---

function announce(notice, alarm) {
	clearTimeout(noticeTimer);
	say($('notice'), notice);
	say($('alarm'), alarm);
	if (notice || alarm) {
		noticeTimer = setTimeout(announce, alarm ? 2 * NOTICE_MS : NOTICE_MS, '', '');
	}
}

const tell = (text) => announce(text, '');

function fail(problem, text) {
	if (problem.kind !== 'session') { // which the form to sign in tells
		announce('', text || problem.message);
	}
}

function confirm(title, text, yes) {
	const dialog = $('confirm');
	say($('confirm-title'), title);
	say($('confirm-text'), text);
	say($('confirm-yes'), yes);
	dialog.returnValue = 'no';
	dialog.showModal();
	return new Promise((resolve) => {
		dialog.addEventListener('close', () => resolve(dialog.returnValue === 'yes'), { once: true });
	});
}

// --- The views ---

function showBar(shown) {
	$('nav').hidden = $('session').hidden = !shown;
}

function signIn(reason) {
	const problem = el('p', { class: 'wrong', role: 'alert' });
	const name = el('input', { id: 'user', autocomplete: 'username', required: true, autocapitalize: 'none' });
	const password = el('input',
		{ id: 'password', type: 'password', autocomplete: 'current-password', required: true });
	const button = el('button', { class: 'primary' }, 'Sign in');
	name.value = 'root';
	const submit = async (event) => {
		event.preventDefault();
		button.setAttribute('aria-disabled', 'true');
		say(problem, '');
		try {
			await login(name.value.trim(), password.value);
			start();
		} catch (error) {
			say(problem, error.message);
			password.value = '';
			password.focus();
		}
		button.setAttribute('aria-disabled', 'false');
	};
	view = null;
	document.title = 'Sign in';
	showBar(false);
	main.replaceChildren(el('section', { class: 'card login', 'aria-labelledby': 'login' },
		el('h1', { id: 'login' }, 'Sign in'),
		el('p', { class: 'why', role: 'status' }, reason || 'With a user of this router.'),
		el('form', { submit }, el('label', { for: 'user' }, 'User name'), name,
			el('label', { for: 'password' }, 'Password'), password, problem, el('div', { class: 'buttons' }, button))));
	password.focus();
}

const tools = { tell, fail, confirm };
const ROUTES = [ // a bus has no character that an address would write in another way
	[/^#\/modem\/(.+)$/, (bus) => oneModem(bus, tools)],
	[/^#\/messages$/, () => messages(tools)],
	[/^/, () => overview()],
];

function show() {
	const [pattern, make] = ROUTES.find(([one]) => one.test(location.hash));
	view = make(pattern.exec(location.hash)[1]);
	want(view.needs);
	heading = el('h1', { tabindex: '-1' }, view.title);
	failure = el('p', { class: 'card failure', role: 'alert', hidden: true });
	main.replaceChildren(failure,
		view.back ? el('a', { class: 'back', href: '#/' }, '‹ All modems') : '',
		el('div', { class: 'title' }, heading, ...(view.extra ?? [])), ...view.nodes);
	for (const link of $('nav').children) {
		const here = link.hash === (view.back ? '#/' : location.hash || '#/');
		here ? link.setAttribute('aria-current', 'page') : link.removeAttribute('aria-current');
	}
	changed();
}

function changed() {
	if (!view) {
		return;
	}
	view.update();
	say(heading, view.title);
	document.title = `${view.title} – vela_modem`;
	failure.hidden = !state.failure;
	say(failure, state.failure && `${state.failure} What is shown may be old. Trying again every ten seconds.`);
	const present = [...state.modems.values()].filter(({ gone }) => !gone);
	const unread = state.messages ? state.messages.filter(({ status }) => status === 'unread').length
		: Math.max(0, ...present.map(({ status }) => status.newsms ?? 0));
	say($('unread'), unread ? `${unread} new` : '');
	$('unread').hidden = !unread;
	say($('fresh'), state.refreshed ? `Updated ${new Date(state.refreshed).toLocaleTimeString('en-GB')}` : '');
}

function start() {
	showBar(true);
	$('logout').title = `Signed in as ${user()}`;
	show();
	heading.focus();
	refresh({ fully: true });
}

// --- The page ---

listen({ changed, told: tell });
whenEnded(() => {
	$('confirm').close('no');
	forget();
	signIn('Your session has ended. Please sign in again.');
});
$('logout').addEventListener('click', () => {
	logout();
	forget();
	signIn('You have signed out.');
});
// Buttons are not "disabled" while something is being done, which would take the focus from them; they do nothing.
document.addEventListener('click', (event) => {
	if (event.target.closest('[aria-disabled=true]')) {
		event.preventDefault();
		event.stopPropagation();
	}
}, true);
$('skip').addEventListener('click', (event) => {
	event.preventDefault();
	main.focus();
});
window.addEventListener('hashchange', () => {
	if (isSignedIn()) {
		show();
		heading.focus();
		window.scrollTo(0, 0);
		refresh();
	}
});

if (window.top !== window.self) {
	// Inside another site's page a click could be meant for that one.
	main.append(el('p', {}, 'This page does not work inside another one.'));
} else if (isSignedIn()) {
	start();
} else {
	signIn();
}
