'use strict';

/* global document, sharing, usage */

const texts = { given: 'You have answered.', postponed: 'We will ask again later.', unknown: '' };
const show = (answer) => (document.getElementById('answer').textContent = texts[answer]);

document.getElementById('ask').addEventListener('click', async () => show(await sharing.ask()));
document.getElementById('export').addEventListener('click', () => usage.report('export'));
sharing.answer().then(show);
