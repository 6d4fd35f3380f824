// The router's bus by way of its web server: JSON-RPC at /ubus, in the name of a session that rpcd keeps. Requests go
// out one after the other, because the modems behind them answer one question at a time.

const ANONYMOUS = '0'.repeat(32);
const KEY = 'vela_modem.session';
const LIMIT_MS = 60000;
const NO_ACCESS = -32002;
const PERMISSION_DENIED = 6;
const TIMED_OUT = 7;

const STATUSES = {
	3: 'The router does not know this request. Is the package up to date?',
	4: 'The modem service is not on the bus. Is vela-modem-rpcd installed and rpcd running?',
};

const CODES = {
	'-17': 'This modem does not support it, or refused it.',
	'-250': 'The modem is not there.',
	'-251': 'The request was incomplete.',
	'-255': 'The modem did not answer.',
	'-259': 'The message is no longer there.',
};

// What went wrong, in words. `kind` is "session", "denied", "unreachable", "timeout" or "refused"; `code` is that of
// the handler, where it was asked.
export class Problem extends Error {
	constructor(kind, text, code) {
		super(text);
		this.kind = kind;
		this.code = code;
	}
}

const over = () => new Problem('session', 'The session has ended.');

let session = null;
let number = 0;
let last = Promise.resolve();
let ended = () => {};

try {
	session = JSON.parse(sessionStorage.getItem(KEY));
} catch {
	// What is no session is none.
}

export const isSignedIn = () => session !== null;
export const user = () => session?.user ?? '';

// Called when the session has ended without the user's doing.
export function whenEnded(listener) {
	ended = listener;
}

const matches = (pattern, name) =>
	pattern.endsWith('*') ? name.startsWith(pattern.slice(0, -1)) : pattern === name;

// Whether the access list of the session has this method.
export function may(method) {
	return Object.entries(session?.acl ?? {}).some(([object, methods]) =>
		matches(object, 'vela_modem') && methods.some((pattern) => matches(pattern, method)));
}

async function post(sid, object, method, args) {
	let reply;
	try {
		const response = await fetch('/ubus', {
			method: 'POST',
			headers: { 'Content-Type': 'application/json' },
			body: JSON.stringify({ jsonrpc: '2.0', id: ++number, method: 'call', params: [sid, object, method, args] }),
			signal: AbortSignal.timeout(LIMIT_MS),
		});
		if (!response.ok) {
			throw new Problem('unreachable', `The web server of the router answered with ${response.status}.`);
		}
		reply = await response.json();
	} catch (error) {
		if (error instanceof Problem) {
			throw error;
		}
		throw error.name === 'TimeoutError'
			? new Problem('timeout', 'The router took too long to answer.')
			: new Problem('unreachable', 'The router does not answer.');
	}
	if (reply.error) {
		throw reply.error.code === NO_ACCESS
			? over()
			: new Problem('unreachable', STATUSES[4]);
	}
	const [status, data] = reply.result ?? [];
	if (status === PERMISSION_DENIED) {
		throw over();
	}
	if (status === TIMED_OUT) {
		throw new Problem('timeout', 'The modem took too long to answer.');
	}
	if (status !== 0) {
		throw new Problem('refused', STATUSES[status] ?? `The router could not do it (status ${status}).`);
	}
	return data ?? {};
}

function end() {
	session = null;
	sessionStorage.removeItem(KEY);
}

export async function login(username, password) {
	let data;
	try {
		data = await post(ANONYMOUS, 'session', 'login', { username, password });
	} catch (problem) {
		throw problem.kind === 'session' ? new Problem('denied', 'User name or password is wrong.') : problem;
	}
	session = { id: data.ubus_rpc_session, user: username, acl: data.acls?.ubus ?? {} };
	if (!may('info')) {
		end();
		throw new Problem('denied', 'This user may not see the modems.');
	}
	sessionStorage.setItem(KEY, JSON.stringify(session));
}

export async function logout() {
	const id = session?.id;
	end();
	try {
		await post(id, 'session', 'destroy', {});
	} catch {
		// A session that cannot be destroyed expires by itself.
	}
}

async function perform(method, args) {
	if (!session) {
		throw over();
	}
	if (!may(method)) {
		throw new Problem('denied', 'This user may not do that.');
	}
	const { id } = session;
	let reply;
	try {
		reply = await post(id, 'vela_modem', method, args);
	} catch (problem) {
		if (problem.kind === 'session' && session?.id === id) {
			end();
			ended();
		}
		throw problem;
	}
	if (session?.id !== id) {
		throw over(); // what was meant for one user is not for the next
	}
	if (reply.code < 0) {
		const text = CODES[reply.code] ?? `The modem service refused it (code ${reply.code}).`;
		throw new Problem('refused', reply.msg ? `${text} (${reply.msg})` : text, reply.code);
	}
	return reply;
}

// Calls one method of the modem service after all calls before it. Gives its reply, or throws a Problem.
export function call(method, args = {}) {
	const result = last.then(() => perform(method, args));
	last = result.catch(() => {});
	return result;
}
