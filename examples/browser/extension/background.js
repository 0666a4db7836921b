// The extension's button opens the page.
chrome.action.onClicked.addListener(() => chrome.tabs.create({url: 'page.html'}));
