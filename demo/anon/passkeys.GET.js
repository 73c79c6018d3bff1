// Passkeys: signing in with one, and adding one to an account. The options come from the endpoint as JSON, go
// to the device, and what the device makes of them goes back as JSON.
'use strict';

const endpoint = '/auth';

class Refusal extends Error {}

const toBase64Url = buffer => btoa(String.fromCharCode(...new Uint8Array(buffer)))
    .replaceAll('+', '-').replaceAll('/', '_').replaceAll('=', '');

function fromBase64Url(text) {
    const bytes = atob(text.replaceAll('-', '+').replaceAll('_', '/'));
    return Uint8Array.from(bytes, character => character.charCodeAt(0));
}

// Browsers that cannot read options from JSON, nor write credentials as JSON, are helped out.
const withBytes = credentials => credentials?.map(credential => ({ ...credential, id: fromBase64Url(credential.id) }));

function creationOptions(json) {
    if (PublicKeyCredential.parseCreationOptionsFromJSON) return PublicKeyCredential.parseCreationOptionsFromJSON(json);
    return {
        ...json,
        challenge: fromBase64Url(json.challenge),
        user: { ...json.user, id: fromBase64Url(json.user.id) },
        excludeCredentials: withBytes(json.excludeCredentials) ?? [],
    };
}

function requestOptions(json) {
    if (PublicKeyCredential.parseRequestOptionsFromJSON) return PublicKeyCredential.parseRequestOptionsFromJSON(json);
    return { ...json, challenge: fromBase64Url(json.challenge), allowCredentials: withBytes(json.allowCredentials) };
}

function credentialToJson(credential) {
    if (credential.toJSON) return credential.toJSON();
    const { response } = credential;
    const json = { id: credential.id, type: credential.type, response: {} };
    const add = (name, buffer) => { if (buffer) json.response[name] = toBase64Url(buffer); };
    add('clientDataJSON', response.clientDataJSON);
    add('authenticatorData', response.authenticatorData ?? response.getAuthenticatorData());
    add('attestationObject', response.attestationObject);
    add('publicKey', response.getPublicKey?.());
    add('signature', response.signature);
    return json;
}

// Asks the endpoint; `refusals` has a sentence for each status that is to be expected.
async function ask(body, headers, refusals) {
    let response;
    try {
        response = await fetch(endpoint, { method: 'POST', body, headers, cache: 'no-store' });
    } catch {
        throw new Refusal('The service does not answer. Look after your connection and try again.');
    }
    if (response.ok) return response;
    throw new Refusal(refusals[response.status] ?? `The service answered with ${response.status}. Try again later.`);
}

const askForm = (fields, refusals) => ask(new URLSearchParams(fields), {}, refusals);
const askJson = (json, refusals) => ask(JSON.stringify(json), { 'Content-Type': 'application/json' }, refusals);

function explain(error) {
    if (error instanceof Refusal) return error.message;
    switch (error.name) {
        case 'NotAllowedError': return 'Your device gave no passkey: it has none that fits, or the request was cancelled or took too long.';
        case 'InvalidStateError': return 'This device holds a passkey of this account already.';
        case 'NotSupportedError': return 'Your device makes no passkeys of the kind that is needed here.';
        case 'SecurityError': return 'Passkeys work on addresses that begin with https and on localhost only.';
        default: return `It did not work: ${error.message}`;
    }
}

async function addPasskey({ user, password, displayName }) {
    const fields = { action: 'webauthn-register', user, password };
    if (displayName) fields.displayName = displayName;
    const answer = await askForm(fields, { 401: 'The name or the password is wrong.' });
    const options = await answer.json();
    options.user.displayName ??= user;
    options.rp.name ??= location.hostname;
    const credential = await navigator.credentials.create({ publicKey: creationOptions(options) });
    await askJson({ action: 'webauthn-register', user: displayName ? { displayName } : {}, credentials: credentialToJson(credential) },
        { 400: 'The service did not accept this passkey. Keepers find the reason in the event log.' });
    return 'The passkey is added. Use it when you sign in next.';
}

// Lets the device forget passkeys that the service does not know any more. Nothing depends on it.
async function tellDevice(rpId, account) {
    try {
        const { userId, allAcceptedCredentialIds, name, displayName } = account;
        await PublicKeyCredential.signalAllAcceptedCredentials?.({ rpId, userId, allAcceptedCredentialIds });
        await PublicKeyCredential.signalCurrentUserDetails?.({ rpId, userId, name, displayName: displayName || name });
    } catch (error) {
        console.info('The device was not told of the accepted passkeys:', error);
    }
}

async function signIn({ user }, next) {
    const answer = await askForm({ action: 'webauthn-authenticate', user }, { 401: 'There is no account of this name.' });
    const options = await answer.json();
    if (options.allowCredentials.length === 0) throw new Refusal('This account has no passkey yet. Sign in with your password and add one.');
    const credential = await navigator.credentials.get({ publicKey: requestOptions(options) });
    const signedIn = await askJson({ action: 'webauthn-authenticate', credentials: credentialToJson(credential) }, {
        400: 'The service did not accept this passkey. Try again, or sign in with your password.',
        404: 'The service does not know this passkey. If you have just added it, try again in a moment.',
    });
    await tellDevice(options.rpId, await signedIn.json());
    location.assign(next);
    return 'You are signed in.';
}

function serve(form, action) {
    if (!form) return;
    const told = form.querySelector('.told');
    const button = form.querySelector('button');
    const tell = (text, isRefused) => {
        told.textContent = text;
        told.classList.toggle('refused', isRefused);
    };
    form.hidden = false;
    if (!window.PublicKeyCredential) {
        button.disabled = true;
        tell('This browser offers no passkeys here: it is too old, or the address begins with neither https nor localhost.', true);
        return;
    }
    form.addEventListener('submit', async event => {
        event.preventDefault();
        button.disabled = true;
        tell('Waiting for your device …', false);
        try {
            tell(await action(Object.fromEntries(new FormData(form)), form.dataset.next), false);
        } catch (error) {
            tell(explain(error), true);
        } finally {
            button.disabled = false;
        }
    });
}

// No page but the sign-in form knows the name: it is kept for the other forms of this tab.
const names = [...document.querySelectorAll('input[name="user"]')];
for (const name of names) {
    name.value ||= sessionStorage.getItem('name') ?? '';
    name.form.addEventListener('submit', () => sessionStorage.setItem('name', name.value));
}

// Two new passwords that differ are told before they are sent.
const change = document.getElementById('change-password');
change?.addEventListener('input', () => {
    const { newPassword, confirmPassword } = change.elements;
    confirmPassword.setCustomValidity(newPassword.value === confirmPassword.value ? '' : 'This is not the new password above.');
});

serve(document.getElementById('passkey-sign-in'), signIn);
serve(document.getElementById('passkey-add'), addPasskey);
