// Stands in for `pellmar` in an application's own tests, on any system. Parses in Node 12.
'use strict';

const withPromises = require('./with-promises.js');

const agents = ['absent', 'asks', 'answered', 'hangs', 'late'];

const calls = [];
let agent;
let hasPostponed;
/** The question on the screen, as `{ callback }`. */
let question;
/** Who waits for its answer by a promise. */
const waiting = [];

function reset() {
  for (const settle of waiting.splice(0)) settle('unknown');
  calls.length = 0;
  agent = 'absent';
  hasPostponed = false;
  question = undefined;
}
reset();

function setAgent(state) {
  if (!agents.includes(state)) throw new TypeError(`The agent is one of ${agents.join(', ')}.`);
  agent = state;
}

function isAsking() {
  return question !== undefined;
}

function answer(value) {
  if (value !== 1 && value !== 2) throw new TypeError('The customer answers with 1 or with 2.');
  if (!question) throw new Error('No question is on the screen.');
  const { callback } = question;
  question = undefined;
  if (value === 2) hasPostponed = true;
  else if (agent === 'asks') agent = 'answered';
  if (typeof callback === 'function') callback(value);
}

/** What the agent's reply is worth, and whether it wants the customer to be asked. */
function reply() {
  const state = agent;
  if (state === 'late') agent = 'asks';
  if (state === 'asks') return { known: hasPostponed ? 2 : 0, wantsQuestion: true };
  return { known: state === 'answered' ? 1 : 0, wantsQuestion: false };
}

/** The text that the agent gets for a name, whatever that is. */
function textOf(name) {
  try {
    return `${name}`.split('\0')[0];
  } catch (error) {
    return '';
  }
}

function PLReportUsageEvent(...args) {
  if (args.length < 1) throw new TypeError('Wrong number of arguments. Should be at least 1 string arg.');
  calls.push(['PLReportUsageEvent', textOf(args[0])]);
  if (args.length > 1) throw new TypeError('Second argument is not supportted rignt now');
}

function PLShowReleaseNotesWindowIfNeeded() {
  calls.push(['PLShowReleaseNotesWindowIfNeeded']);
}

function PLShowReleaseNotesWindow() {
  calls.push(['PLShowReleaseNotesWindow']);
}

function PLCanShowReleaseNotesWindow() {
  calls.push(['PLCanShowReleaseNotesWindow']);
  return true;
}

function PLGetLastUserEmailSharingResponse() {
  calls.push(['PLGetLastUserEmailSharingResponse']);
  return reply().known;
}

function PLAskUserToShareEmail(callback) {
  calls.push(['PLAskUserToShareEmail']);
  const { known, wantsQuestion } = reply();
  if (wantsQuestion) {
    question = question || { callback };
  } else if (typeof callback === 'function') {
    callback(known);
  }
  return wantsQuestion;
}

function PLEnableDebugLogging(...args) {
  if (args.length < 1) throw new TypeError('Wrong number of arguments. Should be 1.');
  if (typeof args[0] !== 'boolean') throw new TypeError('Wrong argument type. Should be Boolean.');
  calls.push(['PLEnableDebugLogging', args[0]]);
}

// Spelled out, so that `import { answer } from 'pellmar/fake'` finds them as well.
module.exports = {
  PLShowReleaseNotesWindowIfNeeded,
  PLShowReleaseNotesWindow,
  PLCanShowReleaseNotesWindow,
  PLReportUsageEvent,
  PLGetLastUserEmailSharingResponse,
  PLAskUserToShareEmail,
  PLEnableDebugLogging,
  setAgent,
  answer,
  isAsking,
  calls,
  reset,
};
module.exports.promises = withPromises(module.exports, waiting);
