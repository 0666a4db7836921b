// The page talks to the native host itself: the host lives as long as the page's port, and ends with the page.
'use strict';

const kHost = 'com.tarvo.kovra.start.example';
const state = document.getElementById('state');
const button = document.getElementById('launch');
let port = null;

// The state stands in a word for programs and in a sentence for people, so never in a colour alone.
function show(word, sentence) {
  state.dataset.state = word;
  state.textContent = sentence;
  // A button that has the focus keeps it: it is marked as busy, not taken away.
  button.setAttribute('aria-disabled', String(word === 'starting'));
}

function connect() {
  const opened = chrome.runtime.connectNative(kHost);
  opened.onMessage.addListener((message) => {
    if (message.state === 'starting') show('starting', 'The launcher is being started.');
    if (message.state === 'launched') show('launched', 'The meeting was launched.');
    if (message.state === 'failed') show('failed', `The meeting was not launched: ${message.text} (${message.domain} ${message.code})`);
    if (message.echo !== undefined) document.dispatchEvent(new CustomEvent('echo', {detail: message.echo}));
  });
  opened.onDisconnect.addListener(() => {
    const reason = opened.error?.message ?? chrome.runtime.lastError?.message ?? 'the host ended';
    port = null;
    show('failed', `The meeting was not launched: ${reason}`);
  });
  return opened;
}

function send(message) {
  port ??= connect();
  port.postMessage(message);
}

document.getElementById('form').addEventListener('submit', (event) => {
  event.preventDefault();
  if (state.dataset.state === 'starting') return;
  show('starting', 'The host is being started.');
  send({launch: {gpcsitedomain: document.getElementById('site').value, meetingkey: document.getElementById('key').value}});
});
